#include "tools/depth/view_estimate.h"

#include <chrono>
#include <filesystem>

#include "device/memory.h"
#include "tools/depth/curved_refinement.h"
#include "tools/depth/depth_transfer.h"
#include "tools/depth/estimate_depthmap.h"
#include "tools/depth/exposure_alignment.h"
#include "tools/depth/neighbour_views.h"
#include "tools/depth/plane_growth.h"
#include "tools/depth/plane_propagation.h"
#include "tools/depth/plane_search.h"
#include "tools/depth/seconds_since.h"
#include "tools/depth/slanted_refinement.h"
#include "tools/depth/view_geometry.h"

namespace depth_tool {
namespace {

namespace fs = std::filesystem;

// One label step in inverse depth: the scale by which the steps after the matching move depths.
float label_step(const DepthOptions& o, float near, float far) {
  return (1.0f / near - 1.0f / far) / static_cast<float>(o.labels - 1);
}

// Halfway between the ends of the range in inverse depth.
float middle_depth(float near, float far) { return 2.0f / (1.0f / near + 1.0f / far); }

PlaneSearchSettings search_settings(const DepthOptions& o, float near, float far, int passes) {
  PlaneSearchSettings ss;
  ss.passes = passes, ss.near = near, ss.far = far, ss.min_texture = o.min_texture;
  ss.label_step = label_step(o, near, far);
  return ss;
}

// The views a plane search compares against: as many as the cost volume's, but with optical axes
// up to 100 degrees apart. The robust score lets the farther ones count where they see the
// surface, which with views 45 degrees apart doubles the views to compare with.
std::vector<int> search_views(const DepthOptions& o, const std::vector<Camera>& cameras, int i, float middle) {
  return choose_neighbours(cameras, i, o.neighbours, middle, 100.0);
}

// Pixels with a depth: also those the last step left as they were (a search leaves the border's).
long with_depth(const CMatrix<float>& depth) {
  long n = 0;
  for (std::size_t p = 0; p < depth.size(); ++p) n += depth.data[p] > 0;
  return n;
}

std::vector<const Camera*> camera_list(const std::vector<Camera>& cameras, const std::vector<int>& chosen) {
  std::vector<const Camera*> list;
  for (int j : chosen) list.push_back(&cameras[j]);
  return list;
}

}  // namespace

void depth_range(const DepthOptions& o, const DepthView& v, float& near, float& far) {
  if (o.range_given) {
    near = o.near, far = o.far;
    return;
  }
  if (!v.has_depth_range)
    throw ViewFileError(v.file, "the depth map \"" + v.view.depth_path +
                                    "\" does not exist or holds no depth; give the depths to try with "
                                    "--depth-range NEAR,FAR");
  near = 0.95f * v.depth_min, far = 1.05f * v.depth_max;
}

ViewDepth estimate_view(const DepthOptions& o, const std::vector<DepthView>& views, const std::vector<Camera>& cameras,
                        const std::vector<CMatrix<float>>& textures, int i, std::ostream& out) {
  const int n = static_cast<int>(views.size());
  float near, far;
  depth_range(o, views[i], near, far);
  const float middle = middle_depth(near, far);
  ViewDepth result;
  result.depth = CMatrix<float>(cameras[i].width, cameras[i].height, 0.0f);
  const std::vector<int> chosen = choose_neighbours(cameras, i, o.neighbours, middle);
  out << "View " << i + 1 << " of " << n << ": " << views[i].file << ", depths " << near << " to " << far;
  if (chosen.empty()) {
    out << ": no neighbouring view (axes within 60 degrees, a baseline of at least 1 degree); skipped" << std::endl;
    return result;
  }
  // Any view can confirm a depth: the check is geometric, and a view that does not see the point
  // simply does not agree.
  for (int j = 0; j < n; ++j)
    if (j != i) result.others.push_back(j);
  out << ", neighbours";
  std::vector<const Camera*> neighbours;
  for (int j : chosen) neighbours.push_back(&cameras[j]), out << " " << fs::path(views[j].file).filename().string();
  std::vector<Camera> aligned;
  if (o.align) {
    const std::vector<ColourMap> maps = align_exposures(cameras[i], neighbours, near, far, o);
    aligned.reserve(neighbours.size());
    for (std::size_t k = 0; k < neighbours.size(); ++k) {
      aligned.push_back(*neighbours[k]);
      aligned.back().image = to_reference_exposure(neighbours[k]->image, maps[k]);
      neighbours[k] = &aligned.back();
      out << " (gain " << maps[k].gain[1] << ", offset " << maps[k].offset[1] << ")";
    }
  }
  // The correlation prints its table of taps per neighbour, with no line end, on a line of its own.
  out << (o.costs == Costs::ncc ? "\n  " : "") << std::flush;
  DepthEstimate e = estimate_depthmap(cameras[i], neighbours, near, far, textures[i], o);
  out << "\n  cost volume " << e.cost_seconds << " s, matching " << e.sgm_seconds << " s; " << e.weak << " weak, "
      << e.ambiguous << " ambiguous";
  if (o.refine) {
    RefinementSettings rs;
    rs.radius = o.refine_radius, rs.range = o.refine_range, rs.steps = o.refine_steps;
    rs.label_step = label_step(o, near, far);
    CMatrix<float> score;
    const auto t0 = std::chrono::steady_clock::now();
    const RefinementStatistics st = refine_on_slanted_windows(e.depth, cameras[i], neighbours, rs, &score);
    long low = 0;
    for (std::size_t p = 0; p < score.size(); ++p)
      if (e.depth.data[p] > 0 && score.data[p] < o.min_score) e.depth.data[p] = 0, ++low;
    out << ", " << st.unmatched + low << " without a slanted window; slanted windows "
        << seconds_since(t0) << " s";
  }
  if (o.search > 0) {
    const auto t0 = std::chrono::steady_clock::now();
    const PlaneSearchStatistics st =
        search_planes(e.depth, cameras[i], camera_list(cameras, search_views(o, cameras, i, middle)), textures[i],
                      search_settings(o, near, far, o.search));
    out << ", plane search: " << st.kept << " of " << st.searched << " pixels kept a plane (" << st.added
        << " new) in " << seconds_since(t0) << " s";
  }
  if (o.search == 0 && o.propagate > 0) {
    PropagationSettings ps;
    ps.passes = o.propagate, ps.near = near, ps.far = far;
    ps.label_step = label_step(o, near, far);
    const auto t0 = std::chrono::steady_clock::now();
    const long moved = propagate_planes(e.depth, cameras[i], neighbours, ps);
    out << ", " << moved << " moved to nearby planes in "
        << seconds_since(t0) << " s";
  }
  if (o.search == 0 && o.grow) {
    GrowthSettings gs;
    gs.min_texture = o.min_texture, gs.near = near, gs.far = far;
    gs.label_step = label_step(o, near, far);
    const auto t0 = std::chrono::steady_clock::now();
    const long grown = grow_on_slanted_windows(e.depth, cameras[i], neighbours, textures[i], gs);
    out << ", " << grown << " grown from neighbouring planes in "
        << seconds_since(t0) << " s";
  }
  // The plane search's score leaves out the views that see the surface most obliquely, which are
  // what pulls depths behind curved surfaces; after it, curved windows gain nothing measurable.
  if (o.search == 0) {
    CurvedRefinementSettings cs;
    cs.label_step = label_step(o, near, far);
    const auto t0 = std::chrono::steady_clock::now();
    const long moved = refine_on_curved_windows(e.depth, cameras[i], neighbours, cs);
    out << ", " << moved << " moved on curved windows in "
        << seconds_since(t0) << " s";
  }
  device::reset();
  result.matched = with_depth(e.depth);
  out << "; depth at " << result.matched << " of " << e.depth.size() << " pixels" << std::endl;
  result.depth = std::move(e.depth);
  return result;
}

void search_again(const DepthOptions& o, const std::vector<DepthView>& views, const std::vector<Camera>& cameras,
                  const std::vector<CMatrix<float>>& textures, std::vector<ViewDepth>& results, std::ostream& out) {
  std::vector<ViewGeometry> geometry;
  for (const Camera& c : cameras) geometry.push_back(view_geometry(c));
  for (int i = 0; i < static_cast<int>(views.size()); ++i) {
    ViewDepth& r = results[i];
    if (r.others.empty()) continue;
    const auto t0 = std::chrono::steady_clock::now();
    float near, far;
    depth_range(o, views[i], near, far);
    const std::vector<int> sources = search_views(o, cameras, i, middle_depth(near, far));
    std::vector<CMatrix<float>> offered;
    for (int j : sources) offered.push_back(transferred_depths(geometry[i], geometry[j], results[j].depth));
    search_planes(r.depth, cameras[i], camera_list(cameras, sources), textures[i],
                  search_settings(o, near, far, o.search_again), offered);
    r.matched = with_depth(r.depth);
    out << "View " << i + 1 << " searched again with its neighbours' depths: depth at " << r.matched << " pixels in "
        << seconds_since(t0) << " s" << std::endl;
  }
}

}  // namespace depth_tool
