#include "src/stereo/sgm.h"

#include <cfloat>
#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

#include "ketra/algorithms/basic.h"
#include "ketra/check_error.h"
#include "ketra/dump.h"
#include "ketra/tools.h"
#include "src/core/settings.h"
#include "src/render/device_arrays.h"
#include "src/render/point_batches.h"
#include "src/stereo/depthmap_estimation_kernels.h"
#include "src/stereo/labels_to_depth.h"
#include "src/stereo/sgm_minima.h"

using namespace depthmap_estimation_kernels;

namespace {

// Blocks of 32 x 4: four walkers per block, one per block row.
LaunchShape walkers(unsigned int count) { return {device::Dim3(1, device::blocksFor(count, 4)), device::Dim3(32, 4)}; }

// What every path launch needs; place k picks stream k and sum array k.
struct PathLaunch {
  ketra::Array<float, 3> C;
  ketra::Array<float, 3> S[2];
  device::stream_t streams[2];
  float P1, P2;
};

template <bool UseP2Map, int dx, int dy>
void path(PathLaunch const& p, int place) {
  constexpr bool major_x = (dx < 0 ? -dx : dx) >= (dy < 0 ? -dy : dy);
  sgm_path_kernel<UseP2Map, dx, dy>(walkers(major_x ? p.C.extents.z : p.C.extents.y), p.C, p.S[place], p.P1, p.P2,
                                    p.streams[place]);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
}

// The direction groups in launch order; o is the place of the second stream (0 with one stream).
template <bool M>
void run_paths(PathLaunch const& p, int num_paths, int o) {
  path<M, 1, 0>(p, 0); path<M, -1, 0>(p, o); path<M, 0, 1>(p, 0); path<M, 0, -1>(p, o);
  if (num_paths > 7) {
    path<M, 1, 1>(p, 0); path<M, -1, 1>(p, 0); path<M, -1, -1>(p, o); path<M, 1, -1>(p, o);
  }
  if (num_paths > 15) {
    path<M, 2, 1>(p, 0); path<M, 2, -1>(p, 0); path<M, -2, 1>(p, o); path<M, -2, -1>(p, o);
    path<M, 1, 2>(p, 0); path<M, -1, 2>(p, 0); path<M, 1, -2>(p, o); path<M, -1, -2>(p, o);
  }
  if (num_paths > 31) {
    path<M, 4, 1>(p, 0); path<M, 4, 3>(p, 0); path<M, 4, -1>(p, 0); path<M, 4, -3>(p, 0);
    path<M, -4, 1>(p, o); path<M, -4, 3>(p, o); path<M, -4, -1>(p, o); path<M, -4, -3>(p, o);
    path<M, 1, 4>(p, 0); path<M, 3, 4>(p, 0); path<M, -1, 4>(p, 0); path<M, -3, 4>(p, 0);
    path<M, 1, -4>(p, o); path<M, 3, -4>(p, o); path<M, -1, -4>(p, o); path<M, -3, -4>(p, o);
  }
}

// The integer best labels (first smallest, plain scan) and the path sums reordered to
// (W, H, L), written under the debug directory.
void dump_path_costs(ketra::Array<float, 3> const& S) {
  const unsigned int L = S.extents.x, W = S.extents.y, H = S.extents.z;
  std::vector<float> host(static_cast<std::size_t>(L) * W * H), reordered(host.size()), best(static_cast<std::size_t>(W) * H);
  ketra::Array<float, 3> host_S = ketra::arrayFromHostMemory(host.data(), L, W, H);
  ketra::arrayCopy(host_S, S);
  for (std::size_t p = 0; p < best.size(); ++p) {
    const float* s = &host[p * L];
    unsigned int b = 0;
    for (unsigned int l = 1; l < L; ++l)
      if (s[l] < s[b]) b = l;
    best[p] = static_cast<float>(b);
    for (unsigned int l = 0; l < L; ++l) reordered[l * best.size() + p] = s[l];
  }
  ketra::writeArrayToFile(ketra::arrayFromHostMemory(reordered.data(), W, H, L),
                          output_directory + "/debug/debug_path_costs.dat");
  ketra::writeArrayToFile(ketra::arrayFromHostMemory(best.data(), W, H), output_directory + "/debug/debug_depthmap.dat");
}

void check_size(char const* what, ketra::Array<float, 2> const& a, ketra::Array<float, 3> const& costs) {
  if (a.extents.x != costs.extents.x || a.extents.y != costs.extents.y)
    throw std::runtime_error(std::string("sgm: ") + what + " " + ketra::internal::str_extents(a.extents) +
                             " does not fit the cost volume " + ketra::internal::str_extents(costs.extents));
}

// The matching, with the path-cost minima of every pixel when minima is given.
void run_sgm(ketra::Array<float, 2>& labels, ketra::Array<float, 3>& costs, float P1, float P2,
             ketra::Array<float, 2> const& P2_map, int num_paths, bool single_stream, ketra::Array<float, 3>* minima) {
  const bool has_map = P2_map.data != nullptr;
  check_size("labels", labels, costs);
  if (has_map) check_size("P2_map", P2_map, costs);
  const unsigned int W = costs.extents.x, H = costs.extents.y, L = costs.extents.z;
  ketra::Array<float, 3> C = allocate_pitched<float, 3>(L, W, H);
  shift_dims(C, costs);
  ketra::Array<float, 3> S = allocate_pitched<float, 3>(L, W, H);
  sgm_fix_matching_costs2<4, 1>({device::Dim3(1, device::blocksFor(W, 4), H), device::Dim3(32, 4)}, C);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);

  if (has_map) {
    P2_tex.filter = device::FilterMode::Point;
    std::size_t offset = 0;
    device::bindTexture2D(&offset, P2_tex, P2_map.data, W, H, P2_map.pitch.y);
    _CHECK_CUDA_ERROR(__FILE__, __LINE__);
    if (offset != 0) throw std::runtime_error("sgm: texture offset is not 0");
  }
  PathLaunch p{C, {S, S}, {nullptr, nullptr}, P1, P2};
  device::streamCreate(&p.streams[0]);
  p.streams[1] = p.streams[0];
  if (!single_stream) {
    device::streamCreate(&p.streams[1]);
    p.S[1] = allocate_pitched<float, 3>(L, W, H);
  }
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  ketra::set(p.S[0], 0.0f, p.streams[0]);
  if (!single_stream) ketra::set(p.S[1], 0.0f, p.streams[1]);

  if (has_map)
    run_paths<true>(p, num_paths, single_stream ? 0 : 1);
  else
    run_paths<false>(p, num_paths, single_stream ? 0 : 1);

  if (!single_stream) {
    ketra::add(p.S[0], p.S[1]);  // on the default stream, which waits for both
    device::streamDestroy(p.streams[1]);
    ketra::freeArray(p.S[1]);
  }
  device::streamDestroy(p.streams[0]);
  if (has_map) device::unbindTexture(P2_tex);
  sgm_extract_labels<4>(render_launch::pixel_shape(W, H), labels, S);
  _CHECK_CUDA_ERROR(__FILE__, __LINE__);
  if (debug_depthmap) dump_path_costs(S);
  if (minima) sgm_path_minima(*minima, S);
  ketra::freeArray(C);
  ketra::freeArray(S);
}

}  // namespace

void sgm(ketra::Array<float, 2>& labels, ketra::Array<float, 3>& costs, float P1, float P2,
         ketra::Array<float, 2> const& P2_map, int num_paths, bool single_stream) {
  run_sgm(labels, costs, P1, P2, P2_map, num_paths, single_stream, nullptr);
}

void sgm(ketra::Array<float, 2>& labels, ketra::Array<float, 3>& costs, float P1, float P2,
         ketra::Array<float, 2> const& P2_map, int num_paths, bool single_stream, ketra::Array<float, 3>& minima) {
  run_sgm(labels, costs, P1, P2, P2_map, num_paths, single_stream, &minima);
}
