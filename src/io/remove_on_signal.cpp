#include "src/io/remove_on_signal.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstring>
#include <stdexcept>

namespace {

// Everything the handler reads is written before the guard that holds it counts as living, and the
// handler only calls functions that are safe in a signal handler: no allocation, no locks.
struct Watched {
  char path[4096];  // empty when too long to keep (that path stays on a signal) or no longer watched
  bool folder;
  bool in_use;
};
constexpr int kMostGuards = 8;
Watched watched[kMostGuards];
std::atomic<int> living{0};  // slots in use, the newest last

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
constexpr int kSignalCount = sizeof kSignals / sizeof kSignals[0];
struct sigaction previous[kSignalCount];
bool handled[kSignalCount];

// Unlinks every entry of the folder, with system calls only; passes again while a pass removed
// something, since unlinking while reading may make the reading skip names.
void empty_folder(const char* path) {
  const int fd = open(path, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return;
  alignas(dirent64) char buffer[4096];
  for (bool removed = true; removed;) {
    removed = false;
    if (lseek(fd, 0, SEEK_SET) != 0) break;
    for (ssize_t n; (n = getdents64(fd, buffer, sizeof buffer)) > 0;)
      for (ssize_t at = 0; at < n;) {
        const dirent64* entry = reinterpret_cast<const dirent64*>(buffer + at);
        at += entry->d_reclen;
        const char* name = entry->d_name;
        if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) continue;
        if (unlinkat(fd, name, 0) == 0) removed = true;
      }
  }
  close(fd);
}

void remove_and_stop(int sig) {
  for (int i = living.load() - 1; i >= 0; --i) {
    const Watched& w = watched[i];
    if (w.path[0] == 0) continue;
    if (w.folder) {
      empty_folder(w.path);
      rmdir(w.path);
    } else {
      unlink(w.path);
    }
  }
  // The signal is blocked while this runs; raised again, it arrives on return with the action
  // the process had before, which ends it.
  for (int k = 0; k < kSignalCount; ++k)
    if (kSignals[k] == sig) sigaction(sig, &previous[k], nullptr);
  raise(sig);
}

void install() {
  struct sigaction action {};
  action.sa_handler = remove_and_stop;
  sigemptyset(&action.sa_mask);
  for (int k = 0; k < kSignalCount; ++k) {
    sigaction(kSignals[k], nullptr, &previous[k]);
    handled[k] = (previous[k].sa_flags & SA_SIGINFO) != 0 || previous[k].sa_handler != SIG_IGN;
    if (handled[k]) sigaction(kSignals[k], &action, nullptr);
  }
}

void uninstall() {
  for (int k = 0; k < kSignalCount; ++k)
    if (handled[k]) sigaction(kSignals[k], &previous[k], nullptr);
}

}  // namespace

RemoveOnSignal::RemoveOnSignal(const std::string& path, Kind kind) : slot(living.load()) {
  if (slot == kMostGuards) throw std::logic_error("RemoveOnSignal: more than 8 guards at once");
  Watched& w = watched[slot];
  w.folder = kind == Kind::folder;
  w.in_use = true;
  const bool fits = path.size() < sizeof w.path;
  std::memcpy(w.path, fits ? path.c_str() : "", fits ? path.size() + 1 : 1);
  living.store(slot + 1);
  if (slot == 0) install();
}

RemoveOnSignal::~RemoveOnSignal() {
  // A guard that ends before a newer one only stops watching its path; the slots are given back
  // when the newest ends.
  watched[slot].path[0] = 0;
  watched[slot].in_use = false;
  int n = living.load();
  while (n > 0 && !watched[n - 1].in_use) --n;
  if (n == 0) uninstall();
  living.store(n);
}
