#pragma once

// The image readers take file names, so each input goes into an in-memory file of this process,
// named through /proc (a file on disk would make every run wait for the file system).
#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

inline const std::string& fuzz_file(const std::uint8_t* data, std::size_t size) {
  static const int fd = memfd_create("quillara-fuzz", 0);
  static const std::string path = "/proc/self/fd/" + std::to_string(fd);
  if (ftruncate(fd, 0) != 0 || pwrite(fd, data, size, 0) != static_cast<ssize_t>(size)) std::abort();
  return path;
}
