#include "src/visibility/backface_removal.h"

#include <iostream>

#include "src/particles/threshold_particles.h"
#include "src/visibility/backface_visibility_test.h"

void remove_backfacing_particles(std::vector<Particle>& particles, std::vector<float>& offsets,
                                 std::vector<float3>& normals, const std::vector<Camera*>& cameras, float tolerance,
                                 int max_views) {
  std::cout << "removing invalid backface points\n";
  std::vector<int> flags;
  backface_visibility_test(flags, particles, offsets, normals, cameras, tolerance);
  threshold_particles<int>(flags, particles, offsets, normals, 0, max_views);
}
