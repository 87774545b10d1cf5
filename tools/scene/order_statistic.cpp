#include "tools/scene/order_statistic.h"

#include <algorithm>
#include <bit>
#include <stdexcept>

namespace scene {
namespace {

constexpr int kBucketBits = 16;

// Bit patterns that sort as the doubles do: negatives flipped whole, positives with the sign set.
uint64_t ordered(double v) {
  const uint64_t bits = std::bit_cast<uint64_t>(v);
  return bits >> 63 ? ~bits : bits | (uint64_t{1} << 63);
}

double from_ordered(uint64_t key) { return std::bit_cast<double>(key >> 63 ? key & ~(uint64_t{1} << 63) : ~key); }

}  // namespace

OrderStatistic make_order_statistic(size_t rank, size_t capacity) {
  OrderStatistic s;
  s.rank = rank;
  s.capacity = capacity;
  s.histogram.assign(size_t{1} << kBucketBits, 0);
  return s;
}

void add_value(OrderStatistic& s, double value) {
  const uint64_t key = ordered(value);
  if (s.fixed_bits > 0) {
    const uint64_t lead = key >> (64 - s.fixed_bits);
    if (lead != s.prefix) {
      s.below += lead < s.prefix;
      return;
    }
  }
  ++s.histogram[(key >> (64 - s.fixed_bits - kBucketBits)) & ((uint64_t{1} << kBucketBits) - 1)];
  if (s.overflow) return;
  if (s.kept.size() < s.capacity) {
    s.kept.push_back(value);
  } else {
    s.overflow = true;
    std::vector<double>().swap(s.kept);
  }
}

bool end_pass(OrderStatistic& s) {
  if (s.rank < s.below) throw std::logic_error("order statistic: the passes saw different values");
  size_t rank = s.rank - s.below;
  if (!s.overflow) {
    if (rank >= s.kept.size()) throw std::logic_error("order statistic: fewer values than its rank");
    std::nth_element(s.kept.begin(), s.kept.begin() + static_cast<std::ptrdiff_t>(rank), s.kept.end());
    s.value = s.kept[rank];
    s.done = true;
    std::vector<double>().swap(s.kept);
    return true;
  }
  // The bucket that holds the k-th becomes the next pass's prefix.
  size_t bucket = 0;
  while (bucket < s.histogram.size() && rank >= s.histogram[bucket]) rank -= s.histogram[bucket++];
  if (bucket == s.histogram.size()) throw std::logic_error("order statistic: fewer values than its rank");
  s.prefix = (s.fixed_bits > 0 ? s.prefix << kBucketBits : 0) | bucket;
  s.fixed_bits += kBucketBits;
  std::fill(s.histogram.begin(), s.histogram.end(), 0);
  s.below = 0;
  s.overflow = false;
  if (s.fixed_bits == 64) {  // every value left is the same
    s.value = from_ordered(s.prefix);
    s.done = true;
    return true;
  }
  return false;
}

}  // namespace scene
