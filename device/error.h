#pragma once

namespace device {

// Error codes of the device layer, after the runtime errors that the system's code tests for.
enum Error : int {
  Success = 0,
  ErrorInvalidValue,
  ErrorMemoryAllocation,
  ErrorInvalidConfiguration,
  ErrorInvalidDevicePointer,
  ErrorInvalidMemcpyDirection,
  ErrorInvalidResourceHandle,
  ErrorNotReady,
  ErrorInvalidPitchValue,
  ErrorInvalidChannelDescriptor,
  ErrorInvalidTexture,
};

// The last error of the calling thread: set by failing calls, returned and cleared by
// getLastError, returned unchanged by peekAtLastError.
Error getLastError();
Error peekAtLastError();
void setLastError(Error e);
const char* getErrorString(Error e);

// Records e as the last error and returns it, so failing calls can end with `return fail(e)`.
Error fail(Error e);

}  // namespace device
