// Device code of semi-global matching: the cost fix, the path walkers and the label extraction.

#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <memory>
#include <utility>

#include "device/launch.h"
#include "ketra/access.h"
#include "src/stereo/depthmap_estimation_kernels.h"
#include "src/stereo/sgm_path_step.h"

namespace depthmap_estimation_kernels {

namespace {

using ketra::element;

HOST_DEVICE inline int floor_div(int a, int b) { return a >= 0 ? a / b : -((-a + b - 1) / b); }

// The pixel at step i of the walker that starts at minor coordinate `start`, and the number of
// times its line has wrapped around the minor axis so far.
template <int dx, int dy>
struct Walk {
  static constexpr bool major_x = (dx < 0 ? -dx : dx) >= (dy < 0 ? -dy : dy);
  static constexpr int major = major_x ? dx : dy;
  static constexpr int minor = major_x ? dy : dx;
  static constexpr int abs_major = major < 0 ? -major : major;
  static constexpr int abs_minor = minor < 0 ? -minor : minor;

  int steps, minor_extent;  // N along the major axis, the extent of the minor one

  // The minor offset floor(i * |minor| / |major| + 1/2), exact in integers.
  HOST_DEVICE static int offset(int i) { return (2 * i * abs_minor + abs_major) / (2 * abs_major); }

  HOST_DEVICE void at(int start, int i, int& x, int& y, int& wraps) const {
    const int major_coordinate = major > 0 ? i : steps - 1 - i;
    const int u = start + (minor >= 0 ? offset(i) : -offset(i));
    wraps = floor_div(u, minor_extent);
    const int minor_coordinate = u - wraps * minor_extent;
    x = major_x ? major_coordinate : minor_coordinate;
    y = major_x ? minor_coordinate : major_coordinate;
  }
};

}  // namespace

template <int BlockRows, int PixelsPerGroup>
void sgm_fix_matching_costs2(LaunchShape shape, ketra::Array<float, 3> C) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    const int L = static_cast<int>(C.extents.x), W = static_cast<int>(C.extents.y);
    const int x = static_cast<int>((idx.block.y * BlockRows + idx.thread.y) * PixelsPerGroup);
    const int y = static_cast<int>(idx.block.z);
    if (x >= W || y >= static_cast<int>(C.extents.z)) return;
    // A lane takes the labels l = lane, lane + 32, ...
    for (int p = x; p < x + PixelsPerGroup && p < W; ++p)
      for (int l = static_cast<int>(idx.thread.x); l < L; l += static_cast<int>(idx.blockDim.x)) {
        float& c = element(C, l, p, y);
        if (!(std::fabs(c) < INFINITY)) c = 1000.0f;
      }
  });
}

template <bool UseP2Map, int dx, int dy>
void sgm_path_kernel(LaunchShape shape, ketra::Array<float, 3> C, ketra::Array<float, 3> S, float P1, float P2,
                     device::stream_t stream) {
  using W = Walk<dx, dy>;
  const int L = static_cast<int>(C.extents.x);
  const W walk{static_cast<int>(W::major_x ? C.extents.y : C.extents.z),
               static_cast<int>(W::major_x ? C.extents.z : C.extents.y)};
  device::launch(
      shape.grid, shape.block,
      [=](device::Index const& idx) {
        const int start = static_cast<int>(idx.block.y * idx.blockDim.y + idx.thread.y);
        if (idx.thread.x != 0 || start >= walk.minor_extent) return;
        // The two rows of Lr, double-buffered: prev belongs to the predecessor, cur is written.
        std::unique_ptr<float[]> rows(new float[2 * static_cast<std::size_t>(L)]);
        float* prev = rows.get();
        float* cur = prev + L;
        float m = 0.0f;  // min over labels of prev
        int last_wraps = 0;
        const std::size_t row_bytes = static_cast<std::size_t>(L) * sizeof(float);
        for (int i = 0; i < walk.steps; ++i) {
          int x, y, wraps;
          walk.at(start, i, x, y, wraps);
          if (i + 1 < walk.steps) {
            // The next pixel of a slanted walk lies far away in memory, where the processor does
            // not look ahead by itself: its rows of C and S are fetched during this step.
            int nx, ny, nw;
            walk.at(start, i + 1, nx, ny, nw);
            const char* next_c = reinterpret_cast<const char*>(&element(C, 0, nx, ny));
            const char* next_s = reinterpret_cast<const char*>(&element(S, 0, nx, ny));
            for (std::size_t b = 0; b < row_bytes; b += 64) {
              __builtin_prefetch(next_c + b);
              __builtin_prefetch(next_s + b, 1);
            }
          }
          const float* c = &element(C, 0, x, y);
          float* s = &element(S, 0, x, y);
          if (i == 0 || wraps != last_wraps) {
            // A path begins here: at step 0, and where the line wrapped to the opposite edge.
            m = sgm_start_step(cur, c, s, L);
            std::swap(prev, cur);
            last_wraps = wraps;
            // Axis walkers run the recurrence from their first pixel again: it is visited twice.
            if (W::abs_minor != 0 || i != 0) continue;
          }
          const float p2 = UseP2Map ? device::tex2D(P2_tex, static_cast<float>(x) + 0.5f,
                                                    static_cast<float>(y) + 0.5f)
                                    : P2;
          m = sgm_path_step(cur, prev, c, s, L, P1, p2, m);
          std::swap(prev, cur);
        }
      },
      stream);
}

template <int BlockRows>
void sgm_extract_labels(LaunchShape shape, ketra::Array<float, 2> labels, ketra::Array<float, 3> S) {
  device::launch(shape.grid, shape.block, [=](device::Index const& idx) {
    const int L = static_cast<int>(S.extents.x), W = static_cast<int>(S.extents.y);
    const int x = idx.x(), y = idx.y();
    if (x >= W || y >= static_cast<int>(S.extents.z)) return;
    const float* s = &element(S, 0, x, y);
    // Lane j holds the first smallest of labels j, j + 32, ...; across lanes the smaller value
    // wins and on a tie the lower lane.
    float v = FLT_MAX;
    int b = 0;
    for (int lane = 0; lane < 32; ++lane) {
      float lane_v = FLT_MAX;
      int lane_b = 0;
      for (int l = lane; l < L; l += 32)
        if (s[l] < lane_v) lane_v = s[l], lane_b = l;
      if (lane_v < v) v = lane_v, b = lane_b;
    }
    element(labels, x, y) = sgm_refine_label(b, s[b], b + 1 < L ? s[b + 1] : 0.0f, b >= 1 ? s[b - 1] : 0.0f, L);
  });
}

#define SGM_PATH(dx, dy)                                                                                              \
  template void sgm_path_kernel<false, dx, dy>(LaunchShape, ketra::Array<float, 3>, ketra::Array<float, 3>, float, \
                                               float, device::stream_t);                                             \
  template void sgm_path_kernel<true, dx, dy>(LaunchShape, ketra::Array<float, 3>, ketra::Array<float, 3>, float,  \
                                              float, device::stream_t);
SGM_PATH(1, 0) SGM_PATH(-1, 0) SGM_PATH(0, 1) SGM_PATH(0, -1)
SGM_PATH(1, 1) SGM_PATH(-1, 1) SGM_PATH(-1, -1) SGM_PATH(1, -1)
SGM_PATH(2, 1) SGM_PATH(2, -1) SGM_PATH(-2, 1) SGM_PATH(-2, -1)
SGM_PATH(1, 2) SGM_PATH(-1, 2) SGM_PATH(1, -2) SGM_PATH(-1, -2)
SGM_PATH(4, 1) SGM_PATH(4, 3) SGM_PATH(4, -1) SGM_PATH(4, -3)
SGM_PATH(-4, 1) SGM_PATH(-4, 3) SGM_PATH(-4, -1) SGM_PATH(-4, -3)
SGM_PATH(1, 4) SGM_PATH(3, 4) SGM_PATH(-1, 4) SGM_PATH(-3, 4)
SGM_PATH(1, -4) SGM_PATH(3, -4) SGM_PATH(-1, -4) SGM_PATH(-3, -4)
#undef SGM_PATH

template void sgm_fix_matching_costs2<4, 1>(LaunchShape, ketra::Array<float, 3>);
template void sgm_extract_labels<4>(LaunchShape, ketra::Array<float, 2>, ketra::Array<float, 3>);

}  // namespace depthmap_estimation_kernels
