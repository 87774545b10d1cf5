#include "device/error.h"

namespace device {

namespace {
thread_local Error last_error = Success;
}

Error getLastError() {
  Error e = last_error;
  last_error = Success;
  return e;
}

Error peekAtLastError() { return last_error; }

void setLastError(Error e) { last_error = e; }

Error fail(Error e) {
  last_error = e;
  return e;
}

const char* getErrorString(Error e) {
  switch (e) {
    case Success: return "no error";
    case ErrorInvalidValue: return "invalid argument";
    case ErrorMemoryAllocation: return "out of memory";
    case ErrorInvalidConfiguration: return "invalid configuration argument";
    case ErrorInvalidDevicePointer: return "invalid device pointer";
    case ErrorInvalidMemcpyDirection: return "invalid copy direction for memcpy";
    case ErrorInvalidResourceHandle: return "invalid resource handle";
    case ErrorNotReady: return "device not ready";
    case ErrorInvalidPitchValue: return "invalid pitch argument";
    case ErrorInvalidChannelDescriptor: return "invalid channel descriptor";
    case ErrorInvalidTexture: return "invalid texture reference";
  }
  return "unrecognized error code";
}

}  // namespace device
