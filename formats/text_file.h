#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>

// A file that cannot be read or written: "PATH: cause", with the cause alone for callers that
// name the file their own way.
struct FileError : std::runtime_error {
  FileError(const std::string& path, const std::string& cause);
  std::string cause;
};

// The first `limit` bytes of a file (all of a shorter one). Throws FileError: "is a directory",
// "cannot be opened: REASON", "cannot be read".
std::string read_text(const std::string& path, std::size_t limit);

// Writes text as the whole file. Throws FileError: "cannot be written: REASON".
void write_text(const std::string& path, const std::string& text);
