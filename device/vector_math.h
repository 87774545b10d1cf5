#pragma once

#include <cmath>

#include "device/vector_types.h"

// Component-wise float3 arithmetic. Each operator is exactly the expression it names, in 32-bit
// float, so callers control the order of operations by how they write their formulas.

HOST_DEVICE inline float3 operator+(float3 a, float3 b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
HOST_DEVICE inline float3 operator-(float3 a, float3 b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
HOST_DEVICE inline float3 operator-(float3 a) { return {-a.x, -a.y, -a.z}; }
HOST_DEVICE inline float3 operator*(float s, float3 a) { return {s * a.x, s * a.y, s * a.z}; }
HOST_DEVICE inline float3 operator*(float3 a, float s) { return {a.x * s, a.y * s, a.z * s}; }
HOST_DEVICE inline float3 operator/(float3 a, float s) { return {a.x / s, a.y / s, a.z / s}; }
HOST_DEVICE inline float dot(float3 a, float3 b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
HOST_DEVICE inline float3 cross(float3 a, float3 b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
HOST_DEVICE inline float length(float3 a) { return std::sqrt(dot(a, a)); }
