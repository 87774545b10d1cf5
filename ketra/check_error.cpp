#include "ketra/check_error.h"

#include <cstdio>
#include <stdexcept>

#include "device/error.h"

void _CHECK_CUDA_ERROR(char const* file, int line) {
  device::Error e = device::getLastError();
  if (e == device::Success) return;
  char text[1024];
  std::snprintf(text, sizeof(text), "%s:%d: cuda error: %s\n", file, line, device::getErrorString(e));
  throw std::runtime_error(text);
}
