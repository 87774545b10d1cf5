#pragma once

// Shared pieces of the array-toolkit suites.

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "device/memory.h"
#include "ketra/tools.h"

// The message of the std::runtime_error that f throws, or "" when it throws none.
template <class F>
std::string message_of(F&& f) {
  try {
    f();
  } catch (std::runtime_error const& e) {
    return e.what();
  }
  return "";
}

// Starts every test with an empty device and fails a test that leaves device memory behind.
class DeviceTest : public ::testing::Test {
 protected:
  void SetUp() override { device::reset(); }
  void TearDown() override {
    EXPECT_EQ(device::liveAllocationCount(), 0u) << "leaked device memory";
    device::reset();
  }
};

// A packed host descriptor of memory at data with extents e.
template <class T>
ketra::Array<T, 4> packed_host(T* data, uint4 e) {
  return {data, make_uint4(sizeof(T), e.x * sizeof(T), e.x * e.y * sizeof(T), e.x * e.y * e.z * sizeof(T)), e, -1};
}

// A DeviceTest that frees, before its leak check, every array a test made through it.
class KetraTest : public DeviceTest {
 protected:
  template <class T, int N>
  ketra::Array<T, N> owned(ketra::Array<T, N> a) {
    frees_.push_back([a]() mutable { ketra::freeArray(a); });
    return a;
  }
  // A pitched device array of D dimensions with extents e (x fastest), filled with values if given.
  template <int D, class T = float>
  ketra::Array<T, D> device_array(uint4 e, std::vector<T> values = {}) {
    ketra::Array<T, 4> d = owned(ketra::mallocDeviceArray<T>(e, ketra::Pitched));
    if (!values.empty()) {
      const ketra::Array<T, 4> host = packed_host(values.data(), e);
      ketra::arrayCopy(d, host);
    }
    if constexpr (D == 4) {
      return d;
    } else {
      return ketra::internal::decreaseArrayDimension<T, 4, D>(d);
    }
  }
  void TearDown() override {
    for (auto& f : frees_) f();
    DeviceTest::TearDown();
  }

 private:
  std::vector<std::function<void()>> frees_;
};

// The contents of an array anywhere, packed, x fastest.
template <class T, int N>
std::vector<T> download(ketra::Array<T, N> const& a) {
  ketra::Array<T, 4> a4 = ketra::internal::as4D(a);
  const uint4 e = a4.extents;
  std::vector<T> values(e.x * e.y * e.z * e.w);
  ketra::Array<T, 4> host = packed_host(values.data(), e);
  ketra::arrayCopy(host, a4);
  return values;
}
