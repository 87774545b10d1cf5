#pragma once

#include <stdexcept>

// Thrown by the hand-written image readers when a file does not have the expected header. The
// text ("File is not in PPM format") is reported by whoever catches it, so that a failed read
// costs one line on standard error, written where the file's purpose is known.
class EInvalidFileFormat : public std::runtime_error {
 public:
  explicit EInvalidFileFormat(const char* format);
};
