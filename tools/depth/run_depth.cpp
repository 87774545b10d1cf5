#include "tools/depth/run_depth.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <chrono>
#include <cmath>
#include <filesystem>
#include <map>
#include <sstream>

#include "device/memory.h"
#include "formats/text_file.h"
#include "image/png_io.h"
#include "src/core/settings.h"
#include "tools/cli/shell_quote.h"
#include "tools/depth/curved_refinement.h"
#include "tools/depth/depth_consistency.h"
#include "tools/depth/depth_jumps.h"
#include "tools/depth/depth_transfer.h"
#include "tools/depth/depth_views.h"
#include "tools/depth/estimate_depthmap.h"
#include "tools/depth/exposure_alignment.h"
#include "tools/depth/local_texture.h"
#include "tools/depth/neighbour_views.h"
#include "tools/depth/plane_growth.h"
#include "tools/depth/plane_propagation.h"
#include "tools/depth/plane_search.h"
#include "tools/depth/slanted_refinement.h"
#include "tools/depth/view_geometry.h"

namespace depth_tool {
namespace {

namespace fs = std::filesystem;

// The range swept for a view: the option, or the view's input depths widened by 5 %.
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

// Every view in order, all of the first view's size, and no two with one output name.
std::vector<DepthView> read_views(const DepthOptions& o, std::ostream& out) {
  std::vector<DepthView> views;
  std::map<std::string, std::string> names;
  for (const std::string& file : o.views) {
    out << "Reading view file " << file << std::endl;
    DepthView& v = views.emplace_back(read_depth_view(file, static_cast<int>(views.size()), !o.range_given));
    const std::string name = fs::path(file).filename().string();
    if (auto [it, fresh] = names.emplace(name, file); !fresh)
      throw ViewFileError(file, "its output \"" + name + "\" would replace that of \"" + it->second + "\"");
    const Camera& first = views.front().camera;
    if (v.camera.width != first.width || v.camera.height != first.height)
      throw ViewFileError(file, "the colour image is " + std::to_string(v.camera.width) + " x " +
                                    std::to_string(v.camera.height) + " but that of the first view is " +
                                    std::to_string(first.width) + " x " + std::to_string(first.height) +
                                    "; all views need one size");
    std::error_code ec;
    if (fs::equivalent(file, fs::path(o.out_dir) / name, ec))
      throw ViewFileError(file, "the output directory holds it; choose another -o DIR");
    float near, far;
    depth_range(o, v, near, far);
  }
  return views;
}

std::string depth_file_name(const std::string& view_file) { return fs::path(view_file).stem().string() + "_depth.png"; }
std::string agreement_file_name(const std::string& view_file) {
  return fs::path(view_file).stem().string() + "_agreeing.png";
}

double median(std::vector<float> v) {
  if (v.empty()) return 0;
  std::nth_element(v.begin(), v.begin() + static_cast<long>(v.size() / 2), v.end());
  return v[v.size() / 2];
}

// View files are words separated by white space: a depth path holding a blank cannot be read back.
void check_output_directory(const std::string& dir) {
  const std::string absolute = fs::absolute(dir).lexically_normal().string();
  if (absolute.find_first_of(" \t\n\r\v\f") != std::string::npos)
    throw FileError(dir, "its path \"" + absolute +
                             "\" holds white space, which the view files written there cannot hold; choose another -o DIR");
}

PlaneSearchSettings search_settings(const DepthOptions& o, float near, float far, int passes) {
  PlaneSearchSettings ss;
  ss.passes = passes, ss.near = near, ss.far = far, ss.min_texture = o.min_texture;
  ss.label_step = (1.0f / near - 1.0f / far) / static_cast<float>(o.labels - 1);
  return ss;
}

// The views a plane search compares against: as many as the cost volume's, but with optical axes
// up to 100 degrees apart. The robust score lets the farther ones count where they see the
// surface, which with views 45 degrees apart doubles the views to compare with.
std::vector<int> search_views(const DepthOptions& o, const std::vector<Camera>& cameras, int i, float middle) {
  return choose_neighbours(cameras, i, o.neighbours, middle, 100.0);
}

std::vector<const Camera*> camera_list(const std::vector<Camera>& cameras, const std::vector<int>& chosen) {
  std::vector<const Camera*> list;
  for (int j : chosen) list.push_back(&cameras[j]);
  return list;
}

// One view's result before it is written.
struct ViewDepth {
  std::vector<int> others;  // the views its depths are checked against; empty when it was not matched
  CMatrix<float> depth;
  CMatrix<unsigned char> agreeing;
  long matched = 0;  // pixels with a depth before the consistency check
};

// Estimates the depth map of view i against its neighbours, printing its progress line.
ViewDepth estimate_view(const DepthOptions& o, const std::vector<DepthView>& views, const std::vector<Camera>& cameras,
                        const std::vector<CMatrix<float>>& textures, int i, std::ostream& out) {
  const int n = static_cast<int>(views.size());
  float near, far;
  depth_range(o, views[i], near, far);
  const float middle = 2.0f / (1.0f / near + 1.0f / far);  // halfway in inverse depth
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
    rs.label_step = (1.0f / near - 1.0f / far) / static_cast<float>(o.labels - 1);
    CMatrix<float> score;
    const auto t0 = std::chrono::steady_clock::now();
    const RefinementStatistics st = refine_on_slanted_windows(e.depth, cameras[i], neighbours, rs, &score);
    long low = 0;
    for (std::size_t p = 0; p < score.size(); ++p)
      if (e.depth.data[p] > 0 && score.data[p] < o.min_score) e.depth.data[p] = 0, ++low;
    e.pixels_with_depth = st.refined - low;
    out << ", " << st.unmatched + low << " without a slanted window; slanted windows "
        << std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() << " s";
  }
  if (o.search > 0) {
    const auto t0 = std::chrono::steady_clock::now();
    const PlaneSearchStatistics st =
        search_planes(e.depth, cameras[i], camera_list(cameras, search_views(o, cameras, i, middle)), textures[i],
                      search_settings(o, near, far, o.search));
    e.pixels_with_depth = st.kept;
    out << ", plane search: " << st.kept << " of " << st.searched << " pixels kept a plane (" << st.added
        << " new) in " << std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() << " s";
  }
  if (o.search == 0 && o.propagate > 0) {
    PropagationSettings ps;
    ps.passes = o.propagate, ps.near = near, ps.far = far;
    ps.label_step = (1.0f / near - 1.0f / far) / static_cast<float>(o.labels - 1);
    const auto t0 = std::chrono::steady_clock::now();
    const long moved = propagate_planes(e.depth, cameras[i], neighbours, ps);
    out << ", " << moved << " moved to nearby planes in "
        << std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() << " s";
  }
  if (o.search == 0 && o.grow) {
    GrowthSettings gs;
    gs.min_texture = o.min_texture, gs.near = near, gs.far = far;
    gs.label_step = (1.0f / near - 1.0f / far) / static_cast<float>(o.labels - 1);
    const auto t0 = std::chrono::steady_clock::now();
    const long grown = grow_on_slanted_windows(e.depth, cameras[i], neighbours, textures[i], gs);
    e.pixels_with_depth += grown;
    out << ", " << grown << " grown from neighbouring planes in "
        << std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() << " s";
  }
  // The plane search's score leaves out the views that see the surface most obliquely, which are
  // what pulls depths behind curved surfaces; after it, curved windows gain nothing measurable.
  if (o.search == 0) {
    CurvedRefinementSettings cs;
    cs.label_step = (1.0f / near - 1.0f / far) / static_cast<float>(o.labels - 1);
    const auto t0 = std::chrono::steady_clock::now();
    const long moved = refine_on_curved_windows(e.depth, cameras[i], neighbours, cs);
    out << ", " << moved << " moved on curved windows in "
        << std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() << " s";
  }
  device::reset();
  out << "; depth at " << e.pixels_with_depth << " of " << e.depth.size() << " pixels" << std::endl;
  result.depth = std::move(e.depth);
  result.matched = e.pixels_with_depth;
  return result;
}

// A second plane search in every view, offered the depths that its search neighbours' maps give
// its pixels: a surface found in one view thus reaches the views that missed it.
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
    const float middle = 2.0f / (1.0f / near + 1.0f / far);
    const std::vector<int> sources = search_views(o, cameras, i, middle);
    std::vector<CMatrix<float>> offered;
    for (int j : sources) offered.push_back(transferred_depths(geometry[i], geometry[j], results[j].depth));
    const PlaneSearchStatistics st = search_planes(r.depth, cameras[i], camera_list(cameras, sources), textures[i],
                                                   search_settings(o, near, far, o.search_again), offered);
    r.matched = st.kept;
    out << "View " << i + 1 << " searched again with its neighbours' depths: depth at " << st.kept << " pixels in "
        << std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() << " s" << std::endl;
  }
}

// Keeps the depths that at least o.consistent other views' maps confirm, or all the views that could
// see them where fewer could (one at least); every view's verdicts are taken from the maps as
// matched, before any is thinned.
void keep_consistent(const DepthOptions& o, const std::vector<Camera>& cameras, std::vector<ViewDepth>& results,
                     std::ostream& out) {
  const auto t0 = std::chrono::steady_clock::now();
  std::vector<ViewGeometry> geometry;
  std::vector<CMatrix<float>> depths;
  for (std::size_t i = 0; i < cameras.size(); ++i) geometry.push_back(view_geometry(cameras[i]));
  for (ViewDepth& r : results) depths.push_back(r.depth);
  long kept = 0, matched = 0;
  for (std::size_t i = 0; i < results.size(); ++i) {
    ViewDepth& r = results[i];
    DepthVerdicts verdicts = judge_depths(geometry, depths, static_cast<int>(i), r.others);
    for (std::size_t p = 0; p < r.depth.size(); ++p) {
      if (!confirmed_enough(verdicts.agreeing.data[p], verdicts.seeing.data[p], o.consistent)) r.depth.data[p] = 0.0f;
      kept += r.depth.data[p] > 0.0f;
    }
    r.agreeing = std::move(verdicts.agreeing);
    matched += r.matched;
  }
  out << "Consistency: " << kept << " of " << matched << " depths confirmed by at least " << o.consistent
      << " other view" << (o.consistent == 1 ? "" : "s") << " (or all that could see them, one at least) in "
      << std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count() << " s" << std::endl;
}

// The depths beside a jump to a farther surface, on its near side, are mostly the near surface
// grown past its outline; they go after the check so that they still confirm other views.
void drop_near_sides(std::vector<ViewDepth>& results, std::ostream& out) {
  long dropped = 0;
  for (ViewDepth& r : results) dropped += drop_near_side_of_jumps(r.depth);
  out << "Depth jumps: " << dropped << " depths beside a farther surface dropped" << std::endl;
}

// The most confirmations, up to K, that nine in ten of the kept depths have: the printed fusion
// asks each point for about that many views' support. Where views are few, many depths stay on
// one confirmation, and asking the fused points for more would strip the surfaces only two
// views see.
int typical_confirmations(const std::vector<ViewDepth>& results, int K) {
  std::vector<long> at_least(static_cast<std::size_t>(K) + 1, 0);
  long kept = 0;
  for (const ViewDepth& r : results)
    for (std::size_t p = 0; p < r.depth.size(); ++p)
      if (r.depth.data[p] > 0) {
        ++kept;
        for (int m = 1; m <= std::min<int>(K, r.agreeing.data[p]); ++m) ++at_least[m];
      }
  int m = K;
  while (m > 0 && 10 * at_least[m] < 9 * kept) --m;
  return m;
}

// Why a run ends without a depth anywhere.
std::string why_no_depth(const DepthOptions& o, const std::vector<ViewDepth>& results) {
  bool any_matched = false, any_neighbours = false;
  for (const ViewDepth& r : results) any_neighbours |= !r.others.empty(), any_matched |= r.matched > 0;
  if (!any_neighbours)
    return "no view has a neighbouring view (optical axes within 60 degrees, a baseline that subtends at least 1 "
           "degree at the depths tried)";
  if (!any_matched)
    return "no pixel matched with a distinct depth inside the range; check that the depths tried hold the scene "
           "(--depth-range) and that there are enough of them (--labels)";
  return "no depth is confirmed by " + std::to_string(o.consistent) + " other views; lower --consistent";
}

// A file about to be written, with the system's reason when it cannot be.
void check_writable(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) throw FileError(path, std::string("cannot be written: ") + std::strerror(errno));
  std::fclose(f);
}

// Writes every view's depth map, agreement image and view file; when one cannot be written, the
// files written so far are removed again, so that a failed run leaves nothing behind.
void write_results(const DepthOptions& o, const std::vector<DepthView>& views, const std::vector<ViewDepth>& results,
                   bool created_directory) {
  std::vector<fs::path> written;
  try {
    for (std::size_t i = 0; i < views.size(); ++i) {
      const std::string name = fs::path(views[i].file).filename().string();
      // Absolute, as relative paths in view files are taken from the working directory.
      const fs::path dir = fs::absolute(o.out_dir).lexically_normal();
      const std::string depth_path = (dir / depth_file_name(name)).string();
      const std::string agreement_path = (dir / agreement_file_name(name)).string();
      const std::string view_path = (fs::path(o.out_dir) / name).string();
      for (const std::string& path : {depth_path, agreement_path, view_path}) {
        check_writable(path);
        written.push_back(path);
      }
      write_depth_map(depth_path, results[i].depth);
      const CMatrix<unsigned char> image = agreement_image(results[i].agreeing);
      try {
        png_io::write_png(agreement_path.c_str(), "quillara-depth", image.xSize, image.ySize, 1,
                          std::vector<unsigned char>(image.data, image.data + image.size()));
      } catch (const std::exception& e) {
        throw FileError(agreement_path, e.what());
      }
      ViewFile view = views[i].view;
      view.depth_path = depth_path;
      write_view_file(view_path, view);
    }
  } catch (...) {
    std::error_code ec;
    for (const fs::path& p : written) fs::remove(p, ec);
    if (created_directory) fs::remove(o.out_dir, ec);  // only when empty
    throw;
  }
}

}  // namespace

void run_depth(const DepthOptions& o, std::ostream& out) {
  const auto start = std::chrono::steady_clock::now();
  check_output_directory(o.out_dir);
  const std::vector<DepthView> views = read_views(o, out);
  std::vector<Camera> cameras;
  std::vector<CMatrix<float>> textures;
  for (const DepthView& v : views) {
    cameras.push_back(v.camera);
    textures.push_back(local_texture(v.camera.image, o.texture_radius));
  }
  // The chain's array dumps go to DIR/debug/ when the user made that folder; the last view's stay.
  output_directory = o.out_dir;
  debug_depthmap = fs::is_directory(fs::path(o.out_dir) / "debug");

  std::vector<ViewDepth> results;
  for (int i = 0; i < static_cast<int>(views.size()); ++i) results.push_back(estimate_view(o, views, cameras, textures, i, out));
  if (o.search > 0 && o.search_again > 0) search_again(o, views, cameras, textures, results, out);
  keep_consistent(o, cameras, results, out);
  drop_near_sides(results, out);

  long pixels = 0, with_depth = 0;
  std::vector<float> samples;  // every 97th depth kept, the first included, for the median
  for (const ViewDepth& r : results) {
    pixels += static_cast<long>(r.depth.size());
    for (std::size_t p = 0; p < r.depth.size(); ++p)
      if (r.depth.data[p] > 0 && with_depth++ % 97 == 0) samples.push_back(r.depth.data[p]);
  }
  if (with_depth == 0) throw std::runtime_error("no view got a depth: " + why_no_depth(o, results));

  const bool existed = fs::exists(o.out_dir);
  std::error_code ec;
  fs::create_directories(o.out_dir, ec);
  if (!fs::is_directory(o.out_dir))
    throw FileError(o.out_dir, "the output directory cannot be created: " + ec.message());
  write_results(o, views, results, !existed);

  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  // Estimated maps confirm stray depths more often than measured ones (the same straddling
  // window errs alike in every view), so the printed fusion asks each point for the support of
  // most of the views that see it rather than of a third, and at least for what the kept depths
  // typically showed here: that many agreeing views, each worth about 2 when it sees the surface
  // within 50 degrees (pi cos 50).
  const int confirmations = typical_confirmations(results, o.consistent);
  std::ostringstream share;
  share.precision(3);
  share << 100.0 * static_cast<double>(with_depth) / static_cast<double>(pixels);
  out << "quillara-depth: " << views.size() << " views in " << seconds << " s; depth at " << share.str()
      << " % of the pixels\n"
      << "  view files, depth maps and agreement images (NAME_agreeing.png) in " << o.out_dir << "\n"
      << "  next: quillara --out-dir " << shell_quote((fs::path(o.out_dir) / "model").string())
      << " --depth-avg " << median(samples) << " --visible-support 0.8"
      << (confirmations > 0 ? " --visible-floor " + std::to_string(2 * confirmations) : std::string()) << " -- "
      << shell_quote((fs::path(o.out_dir) / "").string()) << "*.txt" << std::endl;
}

}  // namespace depth_tool
