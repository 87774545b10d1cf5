#pragma once

#include <type_traits>

#include "device/host_device.h"

// The plain scalar operations of the element-wise family. Integer arithmetic wraps around and
// integer division by zero gives all bits set, as on a GPU, instead of trapping.
namespace ketra::internal {

template <class S>
using Wide = std::conditional_t<(sizeof(S) > sizeof(unsigned int)), unsigned long long, unsigned int>;

struct OpSet {
  template <class S> HOST_DEVICE S operator()(S, S b) const { return b; }
};
struct OpAdd {
  template <class S> HOST_DEVICE S operator()(S a, S b) const {
    if constexpr (std::is_integral_v<S>) return static_cast<S>(static_cast<Wide<S>>(a) + static_cast<Wide<S>>(b));
    else return a + b;
  }
};
struct OpSub {
  template <class S> HOST_DEVICE S operator()(S a, S b) const {
    if constexpr (std::is_integral_v<S>) return static_cast<S>(static_cast<Wide<S>>(a) - static_cast<Wide<S>>(b));
    else return a - b;
  }
};
struct OpMul {
  template <class S> HOST_DEVICE S operator()(S a, S b) const {
    if constexpr (std::is_integral_v<S>) return static_cast<S>(static_cast<Wide<S>>(a) * static_cast<Wide<S>>(b));
    else return a * b;
  }
};
struct OpDiv {
  template <class S> HOST_DEVICE S operator()(S a, S b) const {
    if constexpr (std::is_integral_v<S>) {
      if (b == 0) return static_cast<S>(~static_cast<Wide<S>>(0));
      if constexpr (std::is_signed_v<S>)
        if (b == static_cast<S>(-1)) return static_cast<S>(Wide<S>(0) - static_cast<Wide<S>>(a));
      return static_cast<S>(a / b);
    } else {
      return a / b;
    }
  }
};

}  // namespace ketra::internal
