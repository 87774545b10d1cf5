#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace scene {

// The k-th smallest of a stream of values, exact, in bounded memory. A pass keeps the values while
// they fit `capacity`; when they do not, it counts the values by the next 16 bits of their ordered
// bit patterns, and the next pass over the same values looks only at the 16-bit bucket that holds
// the k-th. At most four passes for doubles; one while the values fit.
struct OrderStatistic {
  size_t rank = 0;
  size_t capacity = 0;
  int fixed_bits = 0;   // leading bits of the ordered pattern that the k-th is known to have
  uint64_t prefix = 0;  // and their value
  size_t below = 0;     // values of this pass under the prefix
  bool overflow = false;
  std::vector<double> kept;
  std::vector<size_t> histogram;
  bool done = false;
  double value = 0;
};

inline constexpr size_t kOrderStatisticCapacity = size_t{1} << 22;  // 32 MiB of doubles

OrderStatistic make_order_statistic(size_t rank, size_t capacity = kOrderStatisticCapacity);

// Feeds one value of the current pass; every pass must see the same values (in any order).
void add_value(OrderStatistic& s, double value);

// Ends a pass over all the values: true once the k-th is known (then in s.value), false when
// another pass is needed. Fewer values than rank + 1 throw std::logic_error.
bool end_pass(OrderStatistic& s);

}  // namespace scene
