#pragma once

#include "device/host_device.h"

// Plain vector records shared by host and device code. Sizes and alignments follow the usual
// GPU vector types so that records that embed them keep the same layout everywhere.

struct alignas(8) float2 { float x, y; };
struct float3 { float x, y, z; };
struct alignas(16) float4 { float x, y, z, w; };
struct alignas(16) double2 { double x, y; };
struct alignas(8) int2 { int x, y; };
struct int3 { int x, y, z; };
struct alignas(16) int4 { int x, y, z, w; };
struct uint1 { unsigned int x; };
struct alignas(8) uint2 { unsigned int x, y; };
struct uint3 { unsigned int x, y, z; };
struct alignas(16) uint4 { unsigned int x, y, z, w; };
struct alignas(2) uchar2 { unsigned char x, y; };
struct uchar3 { unsigned char x, y, z; };
struct alignas(4) uchar4 { unsigned char x, y, z, w; };
struct alignas(8) ushort4 { unsigned short x, y, z, w; };

HOST_DEVICE inline float2 make_float2(float x, float y) { return {x, y}; }
HOST_DEVICE inline float3 make_float3(float x, float y, float z) { return {x, y, z}; }
HOST_DEVICE inline float4 make_float4(float x, float y, float z, float w) { return {x, y, z, w}; }
HOST_DEVICE inline double2 make_double2(double x, double y) { return {x, y}; }
HOST_DEVICE inline int2 make_int2(int x, int y) { return {x, y}; }
HOST_DEVICE inline int3 make_int3(int x, int y, int z) { return {x, y, z}; }
HOST_DEVICE inline int4 make_int4(int x, int y, int z, int w) { return {x, y, z, w}; }
HOST_DEVICE inline uint1 make_uint1(unsigned int x) { return {x}; }
HOST_DEVICE inline uint2 make_uint2(unsigned int x, unsigned int y) { return {x, y}; }
HOST_DEVICE inline uint3 make_uint3(unsigned int x, unsigned int y, unsigned int z) { return {x, y, z}; }
HOST_DEVICE inline uint4 make_uint4(unsigned int x, unsigned int y, unsigned int z, unsigned int w) {
  return {x, y, z, w};
}
HOST_DEVICE inline uchar2 make_uchar2(unsigned char x, unsigned char y) { return {x, y}; }
HOST_DEVICE inline uchar3 make_uchar3(unsigned char x, unsigned char y, unsigned char z) { return {x, y, z}; }
HOST_DEVICE inline uchar4 make_uchar4(unsigned char x, unsigned char y, unsigned char z, unsigned char w) {
  return {x, y, z, w};
}
HOST_DEVICE inline ushort4 make_ushort4(unsigned short x, unsigned short y, unsigned short z,
                                        unsigned short w) {
  return {x, y, z, w};
}
