#pragma once

#include <atomic>

#include "device/host_device.h"

// Atomic read-modify-write operations on plain memory, for per-element code that many threads
// run at once. Each returns the value held before the operation.
namespace device {

HOST_DEVICE inline float atomicAdd(float* address, float value) {
  return std::atomic_ref<float>(*address).fetch_add(value, std::memory_order_relaxed);
}
HOST_DEVICE inline int atomicAdd(int* address, int value) {
  return std::atomic_ref<int>(*address).fetch_add(value, std::memory_order_relaxed);
}
HOST_DEVICE inline unsigned int atomicAdd(unsigned int* address, unsigned int value) {
  return std::atomic_ref<unsigned int>(*address).fetch_add(value, std::memory_order_relaxed);
}
HOST_DEVICE inline unsigned long long atomicAdd(unsigned long long* address, unsigned long long value) {
  return std::atomic_ref<unsigned long long>(*address).fetch_add(value, std::memory_order_relaxed);
}

// Integer maximum and minimum by compare-and-swap loops.
template <class T>
HOST_DEVICE inline T atomicMaxInteger(T* address, T value) {
  std::atomic_ref<T> ref(*address);
  T old = ref.load(std::memory_order_relaxed);
  while (old < value && !ref.compare_exchange_weak(old, value, std::memory_order_relaxed)) {
  }
  return old;
}
template <class T>
HOST_DEVICE inline T atomicMinInteger(T* address, T value) {
  std::atomic_ref<T> ref(*address);
  T old = ref.load(std::memory_order_relaxed);
  while (value < old && !ref.compare_exchange_weak(old, value, std::memory_order_relaxed)) {
  }
  return old;
}
HOST_DEVICE inline int atomicMax(int* a, int v) { return atomicMaxInteger(a, v); }
HOST_DEVICE inline unsigned int atomicMax(unsigned int* a, unsigned int v) { return atomicMaxInteger(a, v); }
HOST_DEVICE inline unsigned long long atomicMax(unsigned long long* a, unsigned long long v) {
  return atomicMaxInteger(a, v);
}
HOST_DEVICE inline int atomicMin(int* a, int v) { return atomicMinInteger(a, v); }
HOST_DEVICE inline unsigned int atomicMin(unsigned int* a, unsigned int v) { return atomicMinInteger(a, v); }
HOST_DEVICE inline unsigned long long atomicMin(unsigned long long* a, unsigned long long v) {
  return atomicMinInteger(a, v);
}

// Compare-and-swap: stores value when *address equals compare; returns the old value.
template <class T>
HOST_DEVICE inline T atomicCASValue(T* address, T compare, T value) {
  std::atomic_ref<T>(*address).compare_exchange_strong(compare, value, std::memory_order_relaxed);
  return compare;  // compare_exchange writes the old value into compare on failure
}
HOST_DEVICE inline int atomicCAS(int* a, int compare, int value) { return atomicCASValue(a, compare, value); }
HOST_DEVICE inline unsigned int atomicCAS(unsigned int* a, unsigned int compare, unsigned int value) {
  return atomicCASValue(a, compare, value);
}
HOST_DEVICE inline unsigned long long atomicCAS(unsigned long long* a, unsigned long long compare,
                                                unsigned long long value) {
  return atomicCASValue(a, compare, value);
}

HOST_DEVICE inline unsigned int atomicExch(unsigned int* a, unsigned int v) {
  return std::atomic_ref<unsigned int>(*a).exchange(v, std::memory_order_relaxed);
}
HOST_DEVICE inline float atomicExch(float* a, float v) {
  return std::atomic_ref<float>(*a).exchange(v, std::memory_order_relaxed);
}

// Float minimum and maximum: a compare-and-swap loop on the bit pattern, which ends as soon as
// the stored value is no longer improved by `value`. A NaN value never replaces anything.
HOST_DEVICE inline float atomicMin(float* address, float value) {
  std::atomic_ref<float> ref(*address);
  float old = ref.load(std::memory_order_relaxed);
  while (value < old && !ref.compare_exchange_weak(old, value, std::memory_order_relaxed)) {
  }
  return old;
}
HOST_DEVICE inline float atomicMax(float* address, float value) {
  std::atomic_ref<float> ref(*address);
  float old = ref.load(std::memory_order_relaxed);
  while (value > old && !ref.compare_exchange_weak(old, value, std::memory_order_relaxed)) {
  }
  return old;
}

}  // namespace device
