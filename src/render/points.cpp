#include "src/render/points.h"

#include <cstddef>

#include "ketra/tools.h"
#include "src/render/device_arrays.h"
#include "src/core/particle_position.h"

namespace {

// Stages the values fill(host, i) writes for every i in a packed host array of dst's extents,
// copies it to dst and frees it.
template <class T, int N, class Fill>
void upload(ketra::Array<T, N>& dst, std::size_t n, Fill fill) {
  ketra::Array<T, 4> host4 = ketra::mallocHostArray<T>(ketra::internal::as4D(dst).extents, ketra::Packed);
  ketra::Array<T, N> host = ketra::internal::decreaseArrayDimension<T, 4, N>(host4);
  for (std::size_t i = 0; i < n; ++i) fill(host4.data, i);
  ketra::arrayCopy(dst, host);
  ketra::freeArray(host4);
}

}  // namespace

Points createPoints(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                    const std::vector<float3>& normals) {
  const std::size_t n = particles.size();
  const auto count = static_cast<unsigned int>(n);
  Points points;
  points.positions = allocate_pitched<float, 2>(count, 3, 1);
  points.normals = allocate_pitched<float, 2>(count, 3, 1);
  points.colors = allocate_pitched<uchar4, 1>(count, 1, 1);
  points.radii = allocate_pitched<float, 1>(count, 1, 1);

  upload(points.positions, n, [&](float* h, std::size_t i) {
    const float3 p = particle_position(particles[i], offsets[i]);
    h[i] = p.x;
    h[n + i] = p.y;
    h[2 * n + i] = p.z;
  });
  upload(points.normals, n, [&](float* h, std::size_t i) {
    h[i] = normals[i].x;
    h[n + i] = normals[i].y;
    h[2 * n + i] = normals[i].z;
  });
  upload(points.colors, n, [&](uchar4* h, std::size_t i) { h[i] = particles[i].color; });
  upload(points.radii, n, [&](float* h, std::size_t i) { h[i] = particles[i].radius; });
  return points;
}

void freePoints(Points& points) {
  ketra::freeArray(points.positions);
  ketra::freeArray(points.normals);
  ketra::freeArray(points.colors);
  ketra::freeArray(points.radii);
}
