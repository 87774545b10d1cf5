#include "src/refine/depthmap_estimation_kernels.h"

#include <cmath>
#include <cstddef>
#include <limits>

#include "device/launch.h"
#include "ketra/access.h"

device::Texture<uchar4, device::ReadMode::NormalizedFloat> image1_tex;
device::Texture<uchar4, device::ReadMode::NormalizedFloat> image2_tex;

namespace depthmap_estimation_kernels {

namespace {

using ketra::element;

constexpr float no_score = std::numeric_limits<float>::quiet_NaN();

// The pixel of a thread, false beyond the extents of the array it writes.
template <class T>
HOST_DEVICE inline bool pixel_of(device::Index const& idx, ketra::Array<T, 2> const& a, int& x, int& y) {
  x = idx.x();
  y = idx.y();
  return x < static_cast<int>(a.extents.x) && y < static_cast<int>(a.extents.y);
}

HOST_DEVICE inline float4 operator+(float4 a, float4 b) { return {a.x + b.x, a.y + b.y, a.z + b.z, a.w + b.w}; }
HOST_DEVICE inline float4 operator-(float4 a, float4 b) { return {a.x - b.x, a.y - b.y, a.z - b.z, a.w - b.w}; }
HOST_DEVICE inline float4 operator*(float s, float4 a) { return {s * a.x, s * a.y, s * a.z, s * a.w}; }
HOST_DEVICE inline float dot(float4 a, float4 b) { return a.x * b.x + a.y * b.y + a.z * b.z + a.w * b.w; }

// The smoothing kernel 315 / (64 pi) * (1 - r^2)^3 at window offset (du, dv), r in window radii;
// 0 beyond the window's circle.
template <int R>
HOST_DEVICE inline float window_weight(int du, int dv) {
  const float r = std::sqrt(static_cast<float>(du * du + dv * dv)) / static_cast<float>(R);
  return r > 1.0f ? 0.0f : 1.5666814f * std::pow(1.0f - r * r, 3.0f);
}

// The weights of all window offsets, rows first. They depend on the offset alone, so a launch
// computes them once.
template <int R>
struct WindowWeights {
  static constexpr int size = 2 * R + 1;
  float w[size * size];
  HOST_DEVICE float operator()(int du, int dv) const { return w[(dv + R) * size + du + R]; }
};

template <int R>
WindowWeights<R> window_weights() {
  WindowWeights<R> table;
  for (int dv = -R; dv <= R; ++dv)
    for (int du = -R; du <= R; ++du) table.w[(dv + R) * table.size + du + R] = window_weight<R>(du, dv);
  return table;
}

// The point read of an image texture at the centre of pixel (u, v), which lies inside the image:
// what tex2D returns there, without the edge clamping that no window of a scored pixel needs.
HOST_DEVICE inline float4 pixel_colour(device::Texture<uchar4, device::ReadMode::NormalizedFloat> const& t, int u,
                                       int v) {
  const uchar4 c = *reinterpret_cast<const uchar4*>(t.base + static_cast<std::size_t>(v) * t.pitch +
                                                    static_cast<std::size_t>(u) * sizeof(uchar4));
  constexpr float scale = device::TexelTraits<uchar4>::scale;
  return {c.x * scale, c.y * scale, c.z * scale, c.w * scale};
}

template <int R>
HOST_DEVICE float ncc_at(int x, int y, ketra::Array<float, 2> const& depth, float tolerance,
                         WindowWeights<R> const& weight) {
  const int W = static_cast<int>(depth.extents.x), H = static_cast<int>(depth.extents.y);
  if (x < R || y < R || x >= W - R || y >= H - R) return no_score;
  const float d = element(depth, x, y);
  if (!(d > 0.0f && d < 3.4028235e38f)) return no_score;  // NaN, infinite, not positive or empty

  // A window pixel takes part when it lies on the centre's surface and the warp reached it.
  auto accepted = [&](int u, int v, float4 warped) {
    return std::fabs(element(depth, u, v) - d) < tolerance && warped.w >= 0.5f;
  };

  float4 A{0, 0, 0, 0}, B{0, 0, 0, 0};
  int n = 0;
  for (int v = y - R; v <= y + R; ++v)
    for (int u = x - R; u <= x + R; ++u) {
      const float4 warped = pixel_colour(image2_tex, u, v);
      if (!accepted(u, v, warped)) continue;
      const float w = weight(u - x, v - y);
      A = A + w * pixel_colour(image1_tex, u, v);
      B = B + w * warped;
      ++n;  // whatever the weight
    }
  if (!(static_cast<float>(n) > 0.5f * static_cast<float>((2 * R + 1) * (2 * R + 1)))) return no_score;

  // A and B are the weighted sums themselves, not means: the score is defined that way.
  float sab = 0.0f, saa = 0.0f, sbb = 0.0f;
  for (int v = y - R; v <= y + R; ++v)
    for (int u = x - R; u <= x + R; ++u) {
      const float4 warped = pixel_colour(image2_tex, u, v);
      if (!accepted(u, v, warped)) continue;
      const float w = weight(u - x, v - y);
      const float4 a = pixel_colour(image1_tex, u, v) - A;
      const float4 b = warped - B;
      sab += w * dot(a, b);
      saa += w * dot(a, a);
      sbb += w * dot(b, b);
    }
  const float prod = saa * sbb;
  if (!(prod > 1e-6)) return no_score;
  return std::fmin(std::fmax(sab / std::sqrt(prod), -1.0f), 1.0f);
}

// Euclidean distance of the RGB bytes of two pixels, each channel scaled to 0..1.
HOST_DEVICE inline float rgb_distance(uchar4 p, uchar4 q) {
  const float r = p.x / 255.0f - q.x / 255.0f, g = p.y / 255.0f - q.y / 255.0f, b = p.z / 255.0f - q.z / 255.0f;
  return std::sqrt(r * r + g * g + b * b);
}

}  // namespace

template <int R>
void ncc_kernel(LaunchShape shape, ketra::Array<float, 2> result, ketra::Array<float, 2> depth,
                float depth_tolerance) {
  const WindowWeights<R> weights = window_weights<R>();
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    int x, y;
    if (pixel_of(idx, result, x, y)) element(result, x, y) = ncc_at<R>(x, y, depth, depth_tolerance, weights);
  });
}

template void ncc_kernel<1>(LaunchShape, ketra::Array<float, 2>, ketra::Array<float, 2>, float);
template void ncc_kernel<2>(LaunchShape, ketra::Array<float, 2>, ketra::Array<float, 2>, float);
template void ncc_kernel<3>(LaunchShape, ketra::Array<float, 2>, ketra::Array<float, 2>, float);

void compute_edge_map_kernel_x(LaunchShape shape, ketra::Array<float, 2> edges, ketra::Array<uchar4, 2> image) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    int x, y;
    if (!pixel_of(idx, edges, x, y)) return;
    element(edges, x, y) = rgb_distance(ketra::ArrayAccessClamp::read(image, x, y),
                                        ketra::ArrayAccessClamp::read(image, x + 1, y));
  });
}

void compute_edge_map_kernel_y(LaunchShape shape, ketra::Array<float, 2> edges, ketra::Array<uchar4, 2> image) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    int x, y;
    if (!pixel_of(idx, edges, x, y)) return;
    element(edges, x, y) += rgb_distance(ketra::ArrayAccessClamp::read(image, x, y),
                                         ketra::ArrayAccessClamp::read(image, x, y + 1));
  });
}

void compute_P2_costs_kernel(LaunchShape shape, ketra::Array<float, 2> map, float P2_min, float decay, float exponent,
                             float P2_max) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    int x, y;
    if (!pixel_of(idx, map, x, y)) return;
    float& m = element(map, x, y);
    m = std::fmax(P2_min, P2_max * std::exp(-decay * std::pow(m, exponent)));
  });
}

}  // namespace depthmap_estimation_kernels
