#pragma once

// Shared pieces of the renderer suites: generated views as the program sees them, particles made
// from them, and device/host transfers of the renderer's arrays.

#include <cmath>
#include <vector>

#include "tests/support/ketra_test_support.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/render/points.h"
#include "src/render/render_buffer.h"
#include "tools/scene/ray_cast.h"
#include "tools/scene/render_view.h"
#include "tools/scene/scene_camera.h"

// One noise-free generated view: the program's camera, and per array pixel the true depth (0
// where the ray hits nothing), the analytic world normal facing the camera and the shape seen.
struct GeneratedView {
  scene::SceneCamera truth;
  Camera camera;
  CMatrix<float> depth;
  CMatrix<float3> normals;
  CMatrix<int> shape;
};

// The camera as the view-file reader makes it: K and R by columns, principal point mirrored.
inline Camera program_camera(const scene::SceneCamera& sc, int index) {
  const scene::ViewFile vf = scene::make_view_file(sc, "", "");
  Camera c;
  for (int r = 0; r < 3; ++r) {
    for (int col = 0; col < 3; ++col) {
      c.K[3 * col + r] = static_cast<float>(vf.K[3 * r + col]);
      c.R[3 * col + r] = static_cast<float>(vf.R[3 * r + col]);
    }
    c.t[r] = static_cast<float>(vf.t[r]);
  }
  for (int r = 0; r < 3; ++r)
    c.center[r] = -(c.R[3 * r] * c.t[0] + c.R[3 * r + 1] * c.t[1] + c.R[3 * r + 2] * c.t[2]);
  c.index = index;
  c.width = sc.width;
  c.height = sc.height;
  c.K[6] = static_cast<float>(c.width - 1) - c.K[6];
  c.K[7] = static_cast<float>(c.height - 1) - c.K[7];
  return c;
}

inline GeneratedView generate_view(const scene::Scene& world, const scene::SceneCamera& sc, int index) {
  GeneratedView v{sc, program_camera(sc, index), CMatrix<float>(sc.width, sc.height),
                  CMatrix<float3>(sc.width, sc.height), CMatrix<int>(sc.width, sc.height)};
  const scene::RenderedView rendered = scene::render_view(world, sc, index, 0.0, 1);
  v.camera.image.setSize(sc.width, sc.height);
  for (int y = 0; y < sc.height; ++y)
    for (int x = 0; x < sc.width; ++x) {
      const int i = y * sc.width + x;
      v.depth(x, y) = static_cast<float>(rendered.depth[i]);
      v.shape(x, y) = rendered.shape[i];
      v.camera.image(x, y) = make_uchar4(rendered.rgb[3 * i], rendered.rgb[3 * i + 1], rendered.rgb[3 * i + 2], 255);
      const scene::Hit hit = scene::cast_ray(world, sc.center, scene::pixel_direction(sc, x, y));
      v.normals(x, y) = make_float3(static_cast<float>(hit.normal.x), static_cast<float>(hit.normal.y),
                                    static_cast<float>(hit.normal.z));
    }
  return v;
}

// True when the 3 x 3 neighbourhood of (x, y) lies on one smooth piece of one surface: no
// silhouette and no crease, so that neighbouring disks lie in the surface's tangent planes.
inline bool interior(const GeneratedView& v, int x, int y) {
  if (x < 1 || y < 1 || x >= v.depth.xSize - 1 || y >= v.depth.ySize - 1 || v.shape(x, y) < 0) return false;
  const float3 n = v.normals(x, y);
  for (int dy = -1; dy <= 1; ++dy)
    for (int dx = -1; dx <= 1; ++dx) {
      const float3 m = v.normals(x + dx, y + dy);
      if (v.shape(x + dx, y + dy) != v.shape(x, y) || n.x * m.x + n.y * m.y + n.z * m.z < 0.999f) return false;
    }
  return true;
}

// True when the surface point seen at pixel (x, y) of `target` is also seen by `source`, away
// from edges and at an angle of less than about 53 degrees: there the source's samples cover the
// surface without gaps.
inline bool seen_well_by(const scene::Scene& world, const GeneratedView& source, const GeneratedView& target, int x,
                         int y) {
  const scene::Hit hit = scene::cast_ray(world, target.truth.center, scene::pixel_direction(target.truth, x, y));
  if (!hit.found) return false;
  const scene::SceneCamera& s = source.truth;
  const scene::Vec3 c = s.R * hit.point + s.t;
  if (c.z <= 0 || !interior(source, static_cast<int>(std::lround(s.fx * c.x / c.z + s.cx)),
                            static_cast<int>(std::lround(s.fy * c.y / c.z + s.cy))))
    return false;
  const scene::Vec3 ray = hit.point - s.center;
  const scene::Hit back = scene::cast_ray(world, s.center, ray);
  if (!back.found || std::fabs(back.t - 1.0) > 1e-6) return false;  // hidden from the source
  return std::fabs(scene::dot(scene::normalize(ray), hit.normal)) > 0.6;
}

// World size of one pixel at the true depth of (x, y).
inline float footprint(const GeneratedView& v, int x, int y) { return v.depth(x, y) / v.camera.K[0]; }

struct ParticleSet {
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
};

// One particle per seen pixel, on the true surface with the analytic normal.
inline ParticleSet particles_of(const GeneratedView& v) {
  ParticleSet s;
  create_particles_from_depthmap(s.particles, s.offsets, s.normals, v.depth, v.normals, v.depth, v.camera.image,
                                 v.camera, 0.0f, 1e30f);
  return s;
}

// Fills a device array from host values, x fastest.
template <class T, int N>
void upload(ketra::Array<T, N>& a, std::vector<T> values) {
  ketra::Array<T, 4> a4 = ketra::internal::as4D(a);
  const ketra::Array<T, 4> host = packed_host(values.data(), a4.extents);
  ketra::arrayCopy(a4, host);
}

// A test that owns one render buffer and frees it before the leak check.
class RenderTest : public KetraTest {
 protected:
  RenderBuffer buffer(int width, int height) {
    RenderBuffer rb = createRenderBuffer(width, height);
    owned(rb.image);
    owned(rb.depth);
    owned(rb.color_sum);
    owned(rb.normal_sum);
    owned(rb.weight_sum);
    return rb;
  }
  Points points(ParticleSet const& s) {
    Points p = createPoints(s.particles, s.offsets, s.normals);
    owned(p.positions);
    owned(p.normals);
    owned(p.colors);
    owned(p.radii);
    return p;
  }
};

// A camera at the origin looking along +z with focal length f and the principal point in the
// middle of a width x height image.
inline Camera pinhole(int width, int height, float f) {
  Camera c;
  c.K[0] = c.K[4] = f;
  c.K[6] = 0.5f * static_cast<float>(width - 1);
  c.K[7] = 0.5f * static_cast<float>(height - 1);
  c.K[8] = 1.0f;
  c.R[0] = c.R[4] = c.R[8] = 1.0f;
  c.width = width;
  c.height = height;
  return c;
}

struct Disk {
  float3 p, n;
  float r;
  uchar4 c = make_uchar4(0, 0, 0, 255);
};

// Particles standing for the disks, at offset 0.
inline ParticleSet disks(std::vector<Disk> const& list) {
  ParticleSet s;
  for (Disk const& d : list) {
    Particle p{};
    p.pos = d.p;
    p.dir = make_float3(0.0f, 0.0f, -1.0f);
    p.color = d.c;
    p.radius = d.r;
    s.particles.push_back(p);
    s.offsets.push_back(0.0f);
    s.normals.push_back(d.n);
  }
  return s;
}

// The array index at which pinhole camera c sees the point p.
inline int2 pixel_of(Camera const& c, float3 p) {
  const float u = p.x * c.K[0] / p.z + c.K[6], v = p.y * c.K[4] / p.z + c.K[7];
  return make_int2(c.width - 1 - static_cast<int>(std::lround(u)), c.height - 1 - static_cast<int>(std::lround(v)));
}
