#pragma once

#include <type_traits>

#include "device/vector_types.h"

// One depth sample frozen as a ray. The particle's position is pos + offset * dir, with the
// offset kept in a parallel array; nothing ever bakes the offset into pos.
struct Particle {
  float3 pos;          // world point of the source depth sample, origin of the ray
  float3 dir;          // unit vector from pos towards the centre of the source camera
  float3 init_normal;  // fall-back normal, dir at creation
  uchar4 color;        // source pixel as it stands
  int camera_index;    // index of the source view
  int pixel_index;     // y * width + x in the source view (superpixel number for coarse particles)
  float radius;        // world size of one pixel at the particle's depth
  bool no_measurement; // the measured depth was unusable; built from the initial depth alone
};

static_assert(std::is_trivially_copyable_v<Particle>, "particles are copied bytewise");
