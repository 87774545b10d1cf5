#pragma once

// Shared pieces of the renderer suites: noise-free generated views as the program sees them,
// hand-placed disks before a camera at the origin, and tests that free what they allocate.

#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <vector>

#include "device/vector_math.h"
#include "src/core/camera.h"
#include "src/io/view_camera.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/render/device_arrays.h"
#include "src/render/points.h"
#include "src/render/render_buffer.h"
#include "tests/support/ketra_test_support.h"
#include "tests/support/particle_cloud.h"
#include "tools/scene/ray_cast.h"
#include "tools/scene/render_view.h"
#include "tools/scene/scene_camera.h"

// One view of the default scene: the program's camera (K and R by columns, principal point
// mirrored), and per array pixel the true depth (0 for none), the measured depth (with the
// generator's noise), analytic normal and shape.
struct GeneratedView {
  scene::SceneCamera truth;
  Camera camera;
  CMatrix<float> depth;
  CMatrix<float> measured;
  CMatrix<float3> normals;
  CMatrix<int> shape;
};

inline const scene::Scene& world() {
  static const scene::Scene s = scene::make_default_scene();
  return s;
}

// View i of a camera ring over the default scene, with depth noise noise * depth^2.
inline GeneratedView make_generated_view(const scene::CameraRing& ring, int i, double noise = 0.0,
                                         uint64_t seed = 1) {
  const scene::SceneCamera sc = scene::make_cameras(world(), ring)[i];
  GeneratedView v{sc, camera_from_view_file(scene::make_view_file(sc, "", ""), i), CMatrix<float>(sc.width, sc.height),
                  CMatrix<float>(sc.width, sc.height), CMatrix<float3>(sc.width, sc.height),
                  CMatrix<int>(sc.width, sc.height)};
  Camera& c = v.camera;
  const scene::RenderedView rendered = scene::render_view(world(), sc, i, noise, seed);
  c.image.setSize(sc.width, sc.height);
  for (int y = 0; y < sc.height; ++y)
    for (int x = 0; x < sc.width; ++x) {
      const int p = y * sc.width + x;
      v.depth(x, y) = static_cast<float>(rendered.depth[p]);
      v.measured(x, y) = static_cast<float>(rendered.measured[p]);
      v.shape(x, y) = rendered.shape[p];
      c.image(x, y) = make_uchar4(rendered.rgb[3 * p], rendered.rgb[3 * p + 1], rendered.rgb[3 * p + 2], 255);
      const scene::Vec3 n = scene::cast_ray(world(), sc.center, scene::pixel_direction(sc, x, y)).normal;
      v.normals(x, y) = make_float3(static_cast<float>(n.x), static_cast<float>(n.y), static_cast<float>(n.z));
    }
  return v;
}

// View i of a ring of 8 views of 120 x 90 pixels with an off-centre principal point, which
// shows mirroring mistakes.
inline const GeneratedView& generated(int i) {
  static std::map<int, GeneratedView> views;
  if (auto it = views.find(i); it != views.end()) return it->second;
  return views.emplace(i, make_generated_view(scene::CameraRing{8, 120, 90, 3.0, 3.5, -2.0}, i)).first->second;
}

// True when the 3 x 3 neighbourhood of (x, y) lies on one smooth piece of one surface: no
// silhouette and no crease, so neighbouring samples lie in the surface's tangent planes.
inline bool interior(const GeneratedView& v, int x, int y) {
  if (x < 1 || y < 1 || x >= v.depth.xSize - 1 || y >= v.depth.ySize - 1 || v.shape(x, y) < 0) return false;
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx)
      if (v.shape(x + dx, y + dy) != v.shape(x, y) || dot(v.normals(x, y), v.normals(x + dx, y + dy)) < 0.999f)
        return false;
  return true;
}

// True when some pixel of the 3 x 3 neighbourhood of (x, y) saw a surface.
inline bool near_surface(const GeneratedView& v, int x, int y) {
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx) {
      const int xx = x + dx, yy = y + dy;
      if (xx >= 0 && yy >= 0 && xx < v.depth.xSize && yy < v.depth.ySize && v.depth(xx, yy) > 0) return true;
    }
  return false;
}

// True when the surface point at pixel (x, y) of `target` is seen by `source` too, away from its
// edges and at less than about 53 degrees to its ray: there the source's samples leave no gaps.
inline bool seen_well_by(const GeneratedView& source, const GeneratedView& target, int x, int y) {
  const scene::Hit hit = scene::cast_ray(world(), target.truth.center, scene::pixel_direction(target.truth, x, y));
  const scene::SceneCamera& s = source.truth;
  const scene::Vec3 c = s.R * hit.point + s.t;
  if (!hit.found || c.z <= 0 ||
      !interior(source, static_cast<int>(std::lround(s.fx * c.x / c.z + s.cx)),
                static_cast<int>(std::lround(s.fy * c.y / c.z + s.cy))))
    return false;
  const scene::Vec3 ray = hit.point - s.center;
  const scene::Hit back = scene::cast_ray(world(), s.center, ray);
  return std::fabs(back.t - 1.0) < 1e-6 && std::fabs(scene::dot(scene::normalize(ray), hit.normal)) > 0.6;
}

// World size of one pixel at the true depth of (x, y).
inline float footprint(const GeneratedView& v, int x, int y) { return v.depth(x, y) / v.camera.K[0]; }

// Expects the depth image rendered into `target` within `tolerance` footprints of the truth wherever
// `source` saw the target's surface well, on more than 500 pixels.
inline void expect_true_depth_where_seen_well(const std::vector<float>& depth, const GeneratedView& source,
                                              const GeneratedView& target, float tolerance) {
  int checked = 0;
  for (int y = 0; y < target.camera.height; ++y)
    for (int x = 0; x < target.camera.width; ++x) {
      if (!interior(target, x, y) || !seen_well_by(source, target, x, y)) continue;
      ++checked;
      ASSERT_NEAR(depth[y * target.camera.width + x], target.depth(x, y), tolerance * footprint(target, x, y))
          << x << ", " << y;
    }
  EXPECT_GT(checked, 500);
}

using ParticleSet = cloud::ParticleSet;

// One particle per seen pixel, on the true surface with the analytic normal.
inline ParticleSet particles_of(const GeneratedView& v) {
  ParticleSet s;
  create_particles_from_depthmap(s.particles, s.offsets, s.normals, v.depth, v.normals, v.depth, v.camera.image,
                                 v.camera, 0.0f, 1e30f);
  return s;
}

// A camera at the origin looking along +z, focal length f, principal point mid-image.
inline Camera pinhole(int width, int height, float f) {
  Camera c;
  c.K[0] = c.K[4] = f;
  c.K[6] = 0.5f * static_cast<float>(width - 1);
  c.K[7] = 0.5f * static_cast<float>(height - 1);
  c.K[8] = c.R[0] = c.R[4] = c.R[8] = 1.0f;
  c.width = width;
  c.height = height;
  return c;
}

struct Disk {
  float3 p, n;
  float r;
  uchar4 c = make_uchar4(0, 0, 0, 255);
};

inline ParticleSet disks(std::vector<Disk> const& list) {
  ParticleSet s;
  for (Disk const& d : list) {
    Particle p = cloud::particle(d.p, {0.0f, 0.0f, 1.0f}, 0, d.r);
    p.color = d.c;
    s.add(p, 0.0f, d.n);
  }
  return s;
}

inline float3 facing(float3 p) { return -p / length(p); }

// The array index of the pixel at which pinhole camera c sees p, as y * width + x.
inline int pixel_of(Camera const& c, float3 p) {
  const long u = std::lround(p.x * c.K[0] / p.z + c.K[6]), v = std::lround(p.y * c.K[4] / p.z + c.K[7]);
  return (c.height - 1 - static_cast<int>(v)) * c.width + c.width - 1 - static_cast<int>(u);
}

template <class T, int N>
void upload(ketra::Array<T, N> a, std::vector<T> values) {
  ketra::Array<T, 4> a4 = ketra::internal::as4D(a);
  ketra::arrayCopy(a4, packed_host(values.data(), a4.extents));
}

// A test that frees every buffer, point set and array it made before the leak check.
class RenderTest : public KetraTest {
 protected:
  template <class T, int N = 2>
  ketra::Array<T, N> array(unsigned int width, unsigned int height = 1, unsigned int planes = 1) {
    return owned(allocate_pitched<T, N>(width, height, planes));
  }
  RenderBuffer buffer(int width, int height) {
    RenderBuffer rb = createRenderBuffer(width, height);
    owned(rb.image), owned(rb.depth), owned(rb.color_sum), owned(rb.normal_sum), owned(rb.weight_sum);
    return rb;
  }
  Points points(ParticleSet const& s) {
    Points p = createPoints(s.particles, s.offsets, s.normals);
    owned(p.positions), owned(p.normals), owned(p.colors), owned(p.radii);
    return p;
  }
};
