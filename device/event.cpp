#include "device/event.h"

namespace device {

namespace {
Error fail(Error e) {
  setLastError(e);
  return e;
}
}  // namespace

Error eventCreateWithFlags(event_t* event, unsigned int flags) {
  if (event == nullptr || flags != 0) return fail(ErrorInvalidValue);
  *event = new EventState;
  return Success;
}

Error eventRecord(event_t event, stream_t) {
  if (event == nullptr) return fail(ErrorInvalidResourceHandle);
  event->stamp = std::chrono::steady_clock::now();
  event->recorded = true;
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
