#include "src/io/temporary_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <stdexcept>

namespace {

// The temporary file to remove when a signal stops the process; written before the handlers are
// installed, read only by them.
char pending_path[4096];
const int kSignals[] = {SIGINT, SIGTERM, SIGHUP};
struct sigaction previous[3];
bool watching = false;

void remove_and_stop(int sig) {
  unlink(pending_path);
  signal(sig, SIG_DFL);
  raise(sig);
}

void watch_signals(const std::string& path) {
  if (path.size() >= sizeof pending_path) return;  // too long to keep: the file stays on a signal
  std::memcpy(pending_path, path.c_str(), path.size() + 1);
  struct sigaction action {};
  action.sa_handler = remove_and_stop;
  sigemptyset(&action.sa_mask);
  for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &action, &previous[i]);
  watching = true;
}

void unwatch_signals() {
  if (!watching) return;
  watching = false;
  for (int i = 0; i < 3; ++i) sigaction(kSignals[i], &previous[i], nullptr);
  pending_path[0] = 0;
}

std::string hidden_name(const std::string& final_path, int attempt) {
  const std::string::size_type slash = final_path.rfind('/');
  const std::string dir = slash == std::string::npos ? "" : final_path.substr(0, slash + 1);
  const std::string name = slash == std::string::npos ? final_path : final_path.substr(slash + 1);
  std::string hidden = dir;
  hidden += '.';
  hidden += name;
  hidden += '.';
  hidden += std::to_string(getpid());
  if (attempt > 0) hidden += '-' + std::to_string(attempt);
  hidden += ".part";
  return hidden;
}

}  // namespace

TemporaryFile::TemporaryFile(const std::string& final_path) {
  // Exclusive creation, so a leftover of an earlier process with the same id is never reused;
  // mode 0666 lets the umask decide, as for any other new file.
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string candidate = hidden_name(final_path, attempt);
    const int fd = open(candidate.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
    if (fd >= 0) {
      close(fd);
      path = candidate;
      watch_signals(path);
      return;
    }
    if (errno != EEXIST) throw std::runtime_error(std::strerror(errno));
  }
  throw std::runtime_error(std::strerror(EEXIST));
}

TemporaryFile::~TemporaryFile() {
  if (path.empty()) return;
  unwatch_signals();
  std::remove(path.c_str());
}

void TemporaryFile::commit(const std::string& final_path) {
  if (std::rename(path.c_str(), final_path.c_str()) != 0) throw std::runtime_error(std::strerror(errno));
  unwatch_signals();
  path.clear();
}
