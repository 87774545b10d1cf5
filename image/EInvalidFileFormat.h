#pragma once

// Thrown by the hand-written image readers when a file does not have the expected header.
// It carries nothing: the constructor reports the expected format on standard error.
class EInvalidFileFormat {
 public:
  explicit EInvalidFileFormat(const char* format);
};
