#pragma once

// Shared pieces of the array-toolkit suites.

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "device/memory.h"

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
