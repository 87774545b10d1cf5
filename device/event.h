#pragma once

#include <chrono>

#include "device/error.h"
#include "device/stream.h"

namespace device {

// An event is a time stamp taken in stream order. The executor runs work synchronously, so the
// host clock at record time is the moment all earlier work of the stream has finished.
struct EventState {
  std::chrono::steady_clock::time_point stamp{};
  bool recorded = false;
  stream_t stream = nullptr;  // stream of the last record
};
using event_t = EventState*;

Error eventCreateWithFlags(event_t* event, unsigned int flags);
Error eventRecord(event_t event, stream_t stream = nullptr);
Error eventSynchronize(event_t event);
Error eventElapsedTime(float* ms, event_t start, event_t stop);
Error eventDestroy(event_t event);

}  // namespace device
