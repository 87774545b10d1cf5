#include "src/visibility/create_particles_for_visualization.h"

#include <cfloat>
#include <cstddef>
#include <iostream>
#include <stdexcept>
#include <unordered_map>

#include "device/vector_math.h"
#include "image/CMatrix.h"
#include "ketra/tools.h"
#include "src/core/particle_position.h"
#include "src/core/settings.h"
#include "src/io/save_depthmap_stack.h"
#include "src/particles/threshold_particles.h"
#include "src/render/depth_from_points.h"
#include "src/render/points.h"
#include "src/render/projection.h"
#include "src/render/render_buffer.h"
#include "src/render/render_points.h"

namespace {

// The one pixel whose dropped particles the second count reports, for inspection.
constexpr int debug_pixel_index = 192400;

template <class T>
CMatrix<T> to_host(const ketra::Array<T, 2>& device_array) {
  CMatrix<T> host(static_cast<int>(device_array.extents.x), static_cast<int>(device_array.extents.y));
  ketra::Array<T, 2> view = ketra::arrayFromHostMemory(host.data, device_array.extents.x, device_array.extents.y);
  ketra::arrayCopy(view, device_array);
  return host;
}

// A device copy of the values, one element per value.
ketra::Array<float, 1> upload(std::vector<float>& values) {
  const auto n = static_cast<unsigned int>(values.size());
  ketra::Array<float, 4> a = ketra::mallocDeviceArray<float>(make_uint4(n, 1, 1, 1));
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  ketra::Array<float, 2> device_values = ketra::internal::decreaseArrayDimension<float, 4, 2>(a);
  ketra::arrayCopy(device_values, ketra::arrayFromHostMemory(values.data(), n, 1));
  return ketra::internal::decreaseArrayDimension<float, 2, 1>(device_values);
}

}  // namespace

void create_particles_for_visualization(std::vector<Particle>& out_particles, std::vector<float>& out_offsets,
                                        std::vector<float3>& out_normals, const std::vector<Particle>& particles,
                                        const std::vector<float>& offsets, const std::vector<float3>& normals,
                                        const std::vector<Camera*>& cameras) {
  std::unordered_map<int, std::size_t> view_of;
  for (std::size_t k = 0; k < cameras.size(); ++k) view_of[cameras[k]->index] = k;
  const std::size_t n = particles.size();
  std::vector<std::size_t> view(n);
  std::vector<float> distance(n);
  for (std::size_t i = 0; i < n; ++i) {
    const auto found = view_of.find(particles[i].camera_index);
    if (found == view_of.end()) throw std::runtime_error("this should not happen");
    view[i] = found->second;
    const float* c = cameras[view[i]]->center;
    distance[i] = length(particle_position(particles[i], offsets[i]) - make_float3(c[0], c[1], c[2]));
  }
  out_particles = particles;
  out_offsets = offsets;
  out_normals = normals;
  if (n == 0) return;  // nothing to render

  Points points = createPoints(particles, offsets, normals);
  ketra::Array<float, 1> device_distance = upload(distance);
  std::vector<CMatrix<uchar4>> colors;
  std::vector<CMatrix<float>> min_distances;
  for (const Camera* camera : cameras) {
    RenderBuffer rb = createRenderBuffer(camera->width, camera->height);
    render_points(rb, points, *camera, rendering_depth_tolerance, 0.0f, FLT_MAX, 1.0f);
    colors.push_back(to_host(rb.image));
    freeRenderBuffer(rb);

    ketra::Array<float, 4> a = ketra::mallocDeviceArray<float>(
        make_uint4(static_cast<unsigned>(camera->width), static_cast<unsigned>(camera->height), 1, 1));
    _CHECK_CUDA_ERROR(__FILE__, __LINE__);
    ketra::Array<float, 2> min_distance = ketra::internal::decreaseArrayDimension<float, 4, 2>(a);
    compute_min_camdistance(min_distance,
                            projection_from_camera(*camera, camera->width, camera->height, 0.0f, FLT_MAX), points,
                            device_distance, rendering_depth_tolerance, 1.0f);
    min_distances.push_back(to_host(min_distance));
    ketra::freeArray(min_distance);
  }
  ketra::freeArray(device_distance);
  freePoints(points);
  saveDepthmapStack(min_distances, output_directory + "/debug/min_camdistances.dat");

  // The nearest visible distance at the particle's own pixel of its own view.
  auto min_distance_of = [&](std::size_t i) { return min_distances[view[i]].data[particles[i].pixel_index]; };
  std::vector<int> marks(n, 0);
  int count = 0;
  for (std::size_t i = 0; i < n; ++i) count += marks[i] = distance[i] == min_distance_of(i);
  std::cout << "#points for visualization " << count << "\n";

  count = 0;
  for (std::size_t i = 0; i < n; ++i) {
    marks[i] = min_distance_of(i) >= distance[i];
    count += marks[i];
    if (!marks[i] && particles[i].pixel_index == debug_pixel_index)
      std::cout << "camdistance " << distance[i] << "   min_camdistance " << min_distance_of(i) << "\n";
  }
  std::cout << "#points for visualization " << count << "\n";

  for (std::size_t i = 0; i < n; ++i) out_particles[i].color = colors[view[i]].data[particles[i].pixel_index];
  threshold_particles<int>(marks, out_particles, out_offsets, out_normals, 1, 1);
}
