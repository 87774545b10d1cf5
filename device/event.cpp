#include "device/event.h"

namespace device {

Error eventCreateWithFlags(event_t* event, unsigned int flags) {
  if (event == nullptr || flags != 0) return fail(ErrorInvalidValue);
  *event = new EventState;
  return Success;
}

// Work issued on the stream before the record has finished when the executor returns, so the
// host clock now is the moment the stream reaches the event.
Error eventRecord(event_t event, stream_t stream) {
  if (event == nullptr || !isValidStream(stream)) return fail(ErrorInvalidResourceHandle);
  event->stamp = std::chrono::steady_clock::now();
  event->recorded = true;
  event->stream = stream;
  return Success;
}

Error eventSynchronize(event_t event) {
  if (event == nullptr) return fail(ErrorInvalidResourceHandle);
  return Success;
}

Error eventElapsedTime(float* ms, event_t start, event_t stop) {
  if (ms == nullptr) return fail(ErrorInvalidValue);
  if (start == nullptr || stop == nullptr) return fail(ErrorInvalidResourceHandle);
  if (!start->recorded || !stop->recorded) return fail(ErrorInvalidResourceHandle);
  *ms = std::chrono::duration<float, std::milli>(stop->stamp - start->stamp).count();
  return Success;
}

Error eventDestroy(event_t event) {
  if (event == nullptr) return fail(ErrorInvalidResourceHandle);
  delete event;
  return Success;
}

}  // namespace device
