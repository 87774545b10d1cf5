#pragma once

#include <optional>
#include <string>

#include "src/io/remove_on_signal.h"

// A file written under a temporary name in the directory of its final path and renamed over that
// path only when complete, so the final path holds either the old file or the whole new one, never
// a part. The temporary name is hidden (".NAME.PID.part"). Until it is renamed, the temporary file
// is removed when the object ends and when the process is stopped by SIGINT, SIGTERM or SIGHUP
// (see RemoveOnSignal).
struct TemporaryFile {
  std::string path;  // the temporary name, empty once renamed
  std::optional<RemoveOnSignal> on_signal;

  // Creates the empty temporary file for final_path; throws std::runtime_error with the system's
  // reason when the directory does not take it.
  explicit TemporaryFile(const std::string& final_path);
  ~TemporaryFile();
  TemporaryFile(const TemporaryFile&) = delete;
  TemporaryFile& operator=(const TemporaryFile&) = delete;

  // Renames the temporary file to final_path; throws std::runtime_error with the reason.
  void commit(const std::string& final_path);
};
