#pragma once

#include <string>

// Removes a file, or a folder with the files in it, when SIGINT, SIGTERM or SIGHUP stops the
// process while the guard lives. The signal removes the paths of all living guards, the newest
// first, and then ends the process as it would have without them (so its status still names the
// signal). A signal the process ignored when the first guard was made stays ignored. Guards are
// made and ended in one thread, at most 8 at once; ending one does not remove its path.
struct RemoveOnSignal {
  enum class Kind { file, folder };
  RemoveOnSignal(const std::string& path, Kind kind);
  ~RemoveOnSignal();
  int slot;  // its place among the guards
  RemoveOnSignal(const RemoveOnSignal&) = delete;
  RemoveOnSignal& operator=(const RemoveOnSignal&) = delete;
};
