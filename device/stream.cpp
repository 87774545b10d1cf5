#include "device/stream.h"

#include <mutex>
#include <set>

namespace device {

namespace {

struct Streams {
  std::mutex mutex;
  std::set<stream_t> live;
  unsigned long long next_id = 1;
};

Streams& streams() {
  static Streams s;
  return s;
}

}  // namespace

Error streamCreate(stream_t* stream) {
  if (stream == nullptr) return fail(ErrorInvalidValue);
  Streams& s = streams();
  std::lock_guard lock(s.mutex);
  auto* created = new StreamState{s.next_id++};
  s.live.insert(created);
  *stream = created;
  return Success;
}

Error streamDestroy(stream_t stream) {
  if (stream == nullptr) return fail(ErrorInvalidResourceHandle);
  Streams& s = streams();
  std::lock_guard lock(s.mutex);
  if (s.live.erase(stream) == 0) return fail(ErrorInvalidResourceHandle);
  delete stream;
  return Success;
}

Error streamSynchronize(stream_t stream) {
  if (!isValidStream(stream)) return fail(ErrorInvalidResourceHandle);
  return Success;
}

bool isValidStream(stream_t stream) {
  if (stream == nullptr) return true;
  Streams& s = streams();
  std::lock_guard lock(s.mutex);
  return s.live.count(stream) == 1;
}

}  // namespace device
