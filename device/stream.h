#pragma once

#include "device/error.h"

namespace device {

// A stream orders the work issued on it. The executor runs every call to completion before it
// returns, so work on any stream is finished, in issue order, when the call returns.
struct StreamState {
  unsigned long long id = 0;
};
using stream_t = StreamState*;  // nullptr is the default stream

Error streamCreate(stream_t* stream);
Error streamDestroy(stream_t stream);
Error streamSynchronize(stream_t stream);

// True for the default stream and for every created, not yet destroyed stream.
bool isValidStream(stream_t stream);

}  // namespace device
