#include "tools/scene/scene_files.h"

#include <cctype>
#include <cstdio>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <stdexcept>

#include "formats/depth_png.h"
#include "formats/new_files.h"
#include "formats/text_file.h"
#include "tools/scene/little_endian.h"
#include "tools/scene/photograph_imaging.h"
#include "tools/scene/plant_outliers.h"
#include "tools/scene/ray_cast.h"
#include "tools/scene/render_view.h"

namespace scene {
namespace {

std::string numbered(const char* stem, int view, const char* extension) {
  char buf[64];
  std::snprintf(buf, sizeof buf, "%s_%02d.%s", stem, view, extension);
  return buf;
}

bool has_white_space(const std::string& s) {
  for (unsigned char c : s)
    if (std::isspace(c)) return true;
  return false;
}

std::string absolute_directory(const std::string& dir) {
  if (dir.empty()) throw std::runtime_error("write_scene: no output directory given");
  std::filesystem::path p = std::filesystem::absolute(dir).lexically_normal();
  std::string s = p.string();
  while (s.size() > 1 && s.back() == '/') s.pop_back();
  return s;
}

}  // namespace

CameraRing camera_ring(const SceneOptions& o) {
  CameraRing ring;
  ring.views = o.views;
  ring.width = o.width;
  ring.height = o.height;
  ring.principal_offset_x = o.principal_offset_x;
  ring.principal_offset_y = o.principal_offset_y;
  return ring;
}

Scene make_scene(const SceneOptions& o) {
  return o.arrangement == Arrangement::street ? make_street_scene(o.views) : make_scene(o.kind);
}

std::vector<SceneCamera> make_scene_cameras(const Scene& scene, const SceneOptions& o) {
  if (o.arrangement == Arrangement::street) return make_street_cameras(o.views, o.width, o.height);
  return make_cameras(scene, camera_ring(o));
}

std::string view_file_name(int view) { return numbered("view", view, "txt"); }
std::string image_file_name(int view) { return numbered("image", view, "png"); }
std::string depth_file_name(int view) { return numbered("depth", view, "png"); }
std::string true_view_file_name(int view) { return numbered("true_view", view, "txt"); }

std::vector<SurfaceSample> ground_truth_samples(const Scene& scene, const std::vector<SceneCamera>& cameras,
                                                int stride, double max_depth) {
  std::vector<SurfaceSample> samples;
  if (stride < 1) stride = 1;
  for (const SceneCamera& c : cameras) {
    const Scene near = shapes_near(scene, c.center, max_depth);
    for (int y = 0; y < c.height; y += stride)
      for (int x = 0; x < c.width; x += stride) {
        const Hit hit = cast_ray(near, c.center, pixel_direction(c, x, y));
        if (hit.found && camera_depth(c, hit.point) <= max_depth) samples.push_back({hit.point, hit.normal});
      }
  }
  return samples;
}

void write_ground_truth_ply(const std::string& path, const std::vector<SurfaceSample>& samples) {
  std::string out = "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(samples.size()) +
                    "\nproperty float x\nproperty float y\nproperty float z\n"
                    "property float nx\nproperty float ny\nproperty float nz\nend_header\n";
  out.reserve(out.size() + samples.size() * 24);
  for (const SurfaceSample& s : samples) {
    for (double v : {s.point.x, s.point.y, s.point.z, s.normal.x, s.normal.y, s.normal.z})
      put_le(out, static_cast<float>(v));
  }
  write_text(path, out);
}

SceneSummary write_scene(const Scene& scene, const SceneOptions& options) {
  if (options.views < 2) throw std::runtime_error("write_scene: at least 2 views are needed");
  if (options.width < 1 || options.height < 1) throw std::runtime_error("write_scene: empty image size");
  SceneSummary summary;
  summary.out_dir = absolute_directory(options.out_dir);
  if (has_white_space(summary.out_dir))
    throw std::runtime_error("write_scene: the output path contains white space, which a view file cannot hold: " +
                             summary.out_dir);
  NewFilesGuard written_files(summary.out_dir);  // a failure takes back what this run wrote
  std::error_code ec;
  std::filesystem::create_directories(summary.out_dir, ec);
  if (!std::filesystem::is_directory(summary.out_dir))
    throw std::runtime_error("write_scene: cannot create the directory " + summary.out_dir +
                             (ec ? ": " + ec.message() : std::string()));

  const std::vector<SceneCamera> cameras = make_scene_cameras(scene, options);
  const bool street = options.arrangement == Arrangement::street;
  const double range = street ? kStreetRange : std::numeric_limits<double>::infinity();
  std::vector<SceneCamera> written = cameras;
  if (options.perturbation.active())
    for (int i = 0; i < options.views; ++i)
      written[i] = perturb_pose(cameras[i], scene, options.perturbation, options.seed, i);
  if (options.rig_error.active()) {
    const double footprint = camera_depth(cameras[0], scene.look_at) / cameras[0].fx;
    for (SceneCamera& camera : written) camera = move_with_rig(camera, scene, options.rig_error, footprint, options.seed);
  }
  const bool moved = options.perturbation.active() || options.rig_error.active() || options.write_true_poses;
  summary.views = options.views;
  summary.width = options.width;
  summary.height = options.height;
  double depth_sum = 0;
  std::vector<SurfaceSample> outliers;
  for (int i = 0; i < options.views; ++i) {
    RenderedView view = render_view(shapes_near(scene, cameras[i].center, range), cameras[i], i, options.noise,
                                    options.seed, options.appearance);
    limit_depth_range(view, range);
    if (options.appearance == Appearance::photograph) develop_photograph(view, options.seed, i);
    for (const Vec3& p : plant_outliers(view, cameras[i], options.outliers, options.seed, i))
      outliers.push_back({p, Vec3{}});
    const std::string image = summary.out_dir + "/" + image_file_name(i);
    const std::string depth = summary.out_dir + "/" + depth_file_name(i);
    write_colour_png(image, view);
    write_depth_png(depth, view.width, view.height, view.depth_mm);
    write_view_file(summary.out_dir + "/" + view_file_name(i), make_view_file(written[i], image, depth));
    if (moved)
      write_view_file(summary.out_dir + "/" + true_view_file_name(i), make_view_file(cameras[i], image, depth));
    write_layout_view(options.layout, summary.out_dir, i, view);
    for (double d : view.depth)
      if (d > 0) {
        depth_sum += d;
        ++summary.surface_pixels;
      }
  }
  write_layout_index(options.layout, summary.out_dir, written);
  write_scene_kind(summary.out_dir, options.kind);
  if (options.outliers > 0) write_ground_truth_ply(summary.out_dir + "/outliers.ply", outliers);
  summary.outlier_pixels = outliers.size();
  summary.average_depth = summary.surface_pixels ? depth_sum / static_cast<double>(summary.surface_pixels) : 0.0;
  char buf[64];
  std::snprintf(buf, sizeof buf, "%.9g\n", summary.average_depth);
  write_text(summary.out_dir + "/average_depth.txt", buf);

  if (street) write_text(summary.out_dir + "/" + kStreetFileName, "street " + std::to_string(options.views) + "\n");
  // A long street is sampled more sparsely: its ground truth would otherwise outgrow the views.
  const int stride = street ? 2 * options.ground_truth_stride : options.ground_truth_stride;
  const std::vector<SurfaceSample> samples = ground_truth_samples(scene, cameras, stride, range);
  write_ground_truth_ply(summary.out_dir + "/ground_truth.ply", samples);
  summary.ground_truth_points = samples.size();
  written_files.keep();
  return summary;
}

std::string format_summary(const SceneSummary& s, const SceneOptions& o) {
  std::ostringstream out;
  out << "quillara-scene: " << s.views << " views of " << s.width << " x " << s.height << " pixels in "
      << s.out_dir << "\n";
  out << "  surface pixels: " << s.surface_pixels << "\n";
  out << std::setprecision(9) << "  average depth: " << s.average_depth << " (average_depth.txt)\n";
  out << "  ground truth points: " << s.ground_truth_points << " (ground_truth.ply)\n";
  out << "  depth noise: " << o.noise << " at depth 1, seed " << o.seed << "\n";
  if (o.perturbation.active())
    out << "  pose error: " << o.perturbation.degrees << " degrees, " << o.perturbation.footprints
        << " pixel footprints (true poses in true_view_NN.txt)\n";
  if (o.rig_error.active())
    out << "  rig error: " << o.rig_error.degrees << " degrees, " << o.rig_error.footprints
        << " pixel footprints for all views alike (true poses in true_view_NN.txt)\n";
  if (o.appearance != Appearance::standard) out << "  appearance: " << appearance_name(o.appearance) << "\n";
  if (o.outliers > 0) out << "  outliers: " << s.outlier_pixels << " pixels with a wrong depth (outliers.ply)\n";
  return out.str();
}

}  // namespace scene
