#include "ketra/timer.h"

#include <algorithm>
#include <fstream>
#include <iomanip>
#include <iostream>
#include <map>
#include <ostream>
#include <sstream>
#include <vector>

#include "device/error.h"
#include "device/event.h"

namespace ketra::timer {

namespace {

struct Entry {
  device::event_t start_event = nullptr;
  device::event_t stop_event = nullptr;
  bool running = false;
  float elapsed = 0.0f;
};

// The program-wide table; its events are destroyed with it at exit.
struct Table : std::map<std::string, Entry> {
  ~Table() {
    for (auto& [name, e] : *this) {
      device::eventDestroy(e.start_event);
      device::eventDestroy(e.stop_event);
    }
  }
};

std::map<std::string, Entry>& table() {
  static Table entries;
  return entries;
}

// Creates the entry with its two events on first use.
Entry& entry(std::string const& name) {
  auto [it, created] = table().try_emplace(name);
  if (created) {
    device::eventCreateWithFlags(&it->second.start_event, 0);
    device::eventCreateWithFlags(&it->second.stop_event, 0);
  }
  return it->second;
}

// Unit chosen for a time by formats 5 and 6: 0 msec, 1 sec, 2 min, 3 h.
int unit_of(float ms) {
  if (ms < 1000.0f) return 0;
  if (ms < 60000.0f) return 1;
  if (ms < 3600000.0f) return 2;
  return 3;
}

std::string in_unit(float ms, int unit) {
  static const float divisors[] = {1.0f, 1000.0f, 60000.0f, 3600000.0f};
  static const char* suffixes[] = {" msec", " sec", " min", " h"};
  std::ostringstream out;
  out << std::fixed << std::setprecision(3) << ms / divisors[unit] << suffixes[unit];
  return out.str();
}

std::string formatted(float ms, Format format, int common_unit) {
  switch (format) {
    case Msec: return in_unit(ms, 0);
    case Sec: return in_unit(ms, 1);
    case Min: return in_unit(ms, 2);
    case Hour: return in_unit(ms, 3);
    case HourMinSec: {
      long long total_seconds = static_cast<long long>(ms / 1000.0f);
      std::ostringstream out;
      out << total_seconds / 3600 << ':' << std::setw(2) << std::setfill('0') << total_seconds / 60 % 60
          << ':' << std::setw(2) << total_seconds % 60;
      return out.str();
    }
    case Auto: return in_unit(ms, unit_of(ms));
    case AutoCommon: return in_unit(ms, common_unit);
  }
  return in_unit(ms, unit_of(ms));
}

void print(std::ostream& out, std::string const& name, Format format, Sorting sorting, bool ascending) {
  std::vector<std::pair<std::string, float>> rows;
  if (name.empty()) {
    for (auto const& [n, e] : table()) rows.emplace_back(n, e.elapsed);
  } else {
    rows.emplace_back(name, entry(name).elapsed);
  }
  internal::printRows(out, std::move(rows), format, sorting, ascending);
}

}  // namespace

void internal::printRows(std::ostream& out, std::vector<std::pair<std::string, float>> rows, Format format,
                         Sorting sorting, bool ascending) {
  auto less = [sorting](auto const& a, auto const& b) {
    if (sorting == ByName) return a.first != b.first ? a.first < b.first : a.second < b.second;
    return a.second < b.second;
  };
  std::stable_sort(rows.begin(), rows.end(),
                   [&](auto const& a, auto const& b) { return ascending ? less(a, b) : less(b, a); });

  size_t width = 0;
  int common_unit = 0;
  for (auto const& [n, ms] : rows) {
    width = std::max(width, n.size());
    common_unit = std::max(common_unit, unit_of(ms));
  }
  for (auto const& [n, ms] : rows)
    out << std::setw(static_cast<int>(width) + 1) << n << ": " << formatted(ms, format, common_unit) << '\n';
}

void start(std::string const& name) {
  Entry& e = entry(name);
  if (e.running) return;
  device::eventRecord(e.start_event);
  e.running = true;
}

void stop(std::string const& name) {
  Entry& e = entry(name);
  device::eventRecord(e.stop_event);
  device::eventSynchronize(e.stop_event);
  float ms = 0.0f;
  // A timer stopped before its first start has no span: it adds nothing and leaves no device
  // error behind for the next check.
  const device::Error pending = device::peekAtLastError();
  if (device::eventElapsedTime(&ms, e.start_event, e.stop_event) != device::Success) {
    device::setLastError(pending);
    ms = 0.0f;
  }
  e.elapsed += ms;
  e.running = false;
}

void reset(std::string const& name) {
  auto it = table().find(name);
  if (it != table().end() && it->second.running) stop(name);
  start(name);
  entry(name).elapsed = 0.0f;
}

void clear() {
  for (auto& [n, e] : table()) {
    device::eventDestroy(e.start_event);
    device::eventDestroy(e.stop_event);
  }
  table().clear();
}

bool isRunning(std::string const& name) { return entry(name).running; }

float elapsedTime(std::string const& name) { return entry(name).elapsed; }

void printToScreen(std::string const& name, Format format, Sorting sorting, bool ascending) {
  print(std::cout, name, format, sorting, ascending);
}

void printToFile(std::string const& name, std::string const& path, Format format, Sorting sorting,
                 bool ascending) {
  std::ofstream out(path);
  print(out, name, format, sorting, ascending);
}

}  // namespace ketra::timer
