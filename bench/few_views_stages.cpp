// few_views_stages: runs the fusion of a generated scene stage by stage and says at which stage each
// input depth pixel leaves the model, per kind of surface and by how many views see the pixel's
// surface. Takes quillara's command line; the views must come from quillara-scene (their directory
// holds the scene's kind and cameras). Writes into the output directory the models of the stages
// (stage_scaffold.ply: the fine particles where they start, stage_filtered.ply: after the fine
// filter, model.ply) for quillara-evaluate, and prints the table.
#include <algorithm>
#include <array>
#include <cfloat>
#include <ctime>
#include <cstdlib>
#include <cmath>
#include <filesystem>
#include <iomanip>
#include <iostream>
#include <map>
#include <sstream>

#include "image/CMatrix.h"
#include "src/app/command_line.h"
#include "src/app/run_error.h"
#include "src/app/scene_input.h"
#include "src/app/stage_options.h"
#include "src/core/particle_position.h"
#include "src/core/settings.h"
#include "src/filter/density.h"
#include "src/filter/filter_particles.h"
#include "src/visibility/support_filter.h"
#include "src/visibility/view_agreement.h"
#include "src/io/model_output.h"
#include "src/seed/measured_planes.h"
#include "src/particles/particles_from_depthmap.h"
#include "src/particles/return_drifted_particles.h"
#include "src/seed/create_particles_from_superpixels.h"
#include "src/seed/create_superpixels.h"
#include "src/seed/particles_to_images.h"
#include "tools/scene/completeness_breakdown.h"
#include "image/png_io.h"
#include "tools/scene/ray_cast.h"
#include "tools/scene/scene_kinds.h"
#include "tools/scene/surface_distance.h"

namespace {

// The first stage at which a pixel's particle is lost or off its surface, in run order.
enum Fate {
  kNoSuperpixel,     // its superpixel had too few depths for a plane
  kCoarseRemoved,    // its superpixel's particle fell to the coarse support filter
  kNoScaffold,       // the scaffold has no depth there (plane seen too obliquely, or out of range)
  kScaffoldOff,      // the scaffold lies farther than the fine radius from the pixel's surface
  kFilteredOff,      // after the fine filter, more than 5 mm off its surface
  kSupportRemoved,   // removed by the last support filter although on its surface
  kKept,             // in the model, within 5 mm
  kKeptOff,          // in the model, off its surface (kept from an earlier failure)
  kFates
};
const char* const kFateNames[kFates] = {"no sp", "sp gone", "no scaff", "scaff off", "filt off", "supp gone",
                                        "kept", "kept off"};

struct PixelTruth {
  int shape = -1;
  scene::Vec3 point;
  int views = 0;
  double incidence = 0;  // degrees between the true normal and the pixel's ray
  scene::Vec3 normal;
};

using Key = std::pair<int, int>;  // camera index, pixel index

std::vector<std::vector<PixelTruth>> pixel_truth(const scene::Scene& world,
                                                 const std::vector<scene::SceneCamera>& cameras) {
  std::vector<std::vector<PixelTruth>> truth(cameras.size());
  for (size_t v = 0; v < cameras.size(); ++v) {
    const scene::SceneCamera& c = cameras[v];
    std::vector<scene::SurfaceSample> samples(static_cast<size_t>(c.width) * c.height);
    truth[v].resize(samples.size());
    for (int y = 0; y < c.height; ++y)
      for (int x = 0; x < c.width; ++x) {
        const scene::Hit hit = scene::cast_ray(world, c.center, scene::pixel_direction(c, x, y));
        if (!hit.found) continue;
        truth[v][y * c.width + x].shape = hit.shape;
        truth[v][y * c.width + x].point = hit.point;
        const scene::Vec3 ray = scene::pixel_direction(c, x, y);
        truth[v][y * c.width + x].incidence =
            std::acos(std::min(1.0, std::fabs(scene::dot(hit.normal, ray)) / scene::length(ray))) * 180.0 / M_PI;
        truth[v][y * c.width + x].normal = hit.normal;
        samples[y * c.width + x].point = hit.point;
      }
    const std::vector<int> views = scene::views_seeing(world, cameras, samples);
    for (size_t i = 0; i < samples.size(); ++i) truth[v][i].views = truth[v][i].shape < 0 ? 0 : views[i];
  }
  return truth;
}

double distance_to_own_surface(const scene::Scene& world, int shape, const Particle& p, float offset) {
  const float3 q = particle_position(p, offset);
  return scene::shape_distance(world.shapes[shape], {q.x, q.y, q.z});
}

// Why the last support filter removes points: per surface group and view count, the share that
// fails the visible share, the share no other view sees (by the views' verdicts) and the share no
// other view agrees with.
void print_silent_views(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                        const std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                        const std::vector<CMatrix<float>>& measured, const std::vector<std::vector<PixelTruth>>& truth,
                        const ViewVerdicts& verdicts, const std::vector<float>& margin, float cos_limit,
                        const scene::Scene& world);

void print_support_diagnosis(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                             const std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                             const std::vector<CMatrix<float>>& measured,
                             const std::vector<std::vector<PixelTruth>>& truth, const scene::Scene& world) {
  const float cos_limit = std::cos(support_rule.facing_limit_degrees * 3.14159265f / 180.0f);
  const ViewVerdicts verdicts = judge_by_views(particles, offsets, normals, cameras,
                                               view_covers(particles, offsets, cameras), kPixelSupportPerView, cos_limit);
  const std::vector<float> margin = visible_support_margin(verdicts.agreeing, verdicts.seeing, support_rule);
  struct Row {
    long n = 0, fail = 0, unseen = 0, unconfirmed = 0;
  };
  std::map<std::string, Row> rows;
  long unseen_why[3] = {};
  for (size_t k = 0; k < particles.size(); ++k) {
    const PixelTruth& t = truth[particles[k].camera_index][particles[k].pixel_index];
    if (t.shape < 0) continue;
    const float3 m = particles[k].pos;
    const bool outlier = scene::length(scene::Vec3{m.x, m.y, m.z} - t.point) > 0.1;
    std::vector<std::string> names = {"a " + scene::surface_group(world.shapes[t.shape], t.point),
                                      "b " + std::to_string(std::min(t.views, 5)) + " views"};
    if (outlier) names = {"c planted outliers"};
    for (const std::string& name : names) {
      Row& r = rows[name];
      ++r.n;
      r.fail += margin[k] < 0;
      r.unseen += verdicts.seeing_views[k] == 0;
      r.unconfirmed += verdicts.agreeing_views[k] == 0;
    }
    if (!outlier && t.views == 2 && margin[k] < 0 && verdicts.seeing_views[k] == 0) {
      // Why no other view judges it: the true surface faces none within the limit, the estimated
      // normal faces none while the true one does, or a facing view says nothing.
      bool true_faces = false, estimated_faces = false;
      const float3 p = particle_position(particles[k], offsets[k]);
      for (const Camera* c : cameras) {
        if (c->index == particles[k].camera_index) continue;
        const scene::Vec3 to{c->center[0] - t.point.x, c->center[1] - t.point.y, c->center[2] - t.point.z};
        if (std::fabs(scene::dot(t.normal, to)) / scene::length(to) >= cos_limit) true_faces = true;
        const float3 towards = make_float3(c->center[0], c->center[1], c->center[2]) - p;
        if (dot(normals[k], towards) / length(towards) >= cos_limit) estimated_faces = true;
      }
      ++unseen_why[!true_faces ? 0 : !estimated_faces ? 1 : 2];
    }
  }
  print_silent_views(particles, offsets, normals, cameras, measured, truth, verdicts, margin, cos_limit, world);
  // The planted outliers that pass, off every surface by more than two footprints as the evaluator
  // counts them: by the views that agree and see, and the surface they lie nearest to.
  std::map<std::string, long> kept_outliers;
  std::vector<double> off;
  for (size_t k = 0; k < particles.size(); ++k) {
    const PixelTruth& t = truth[particles[k].camera_index][particles[k].pixel_index];
    const float3 m = particles[k].pos;
    if (t.shape < 0 || margin[k] < 0 || scene::length(scene::Vec3{m.x, m.y, m.z} - t.point) <= 0.1) continue;
    const float3 p = particle_position(particles[k], offsets[k]);
    const scene::SurfacePoint near = scene::closest_surface(world, {p.x, p.y, p.z});
    if (near.distance <= 2 * average_depth / cameras[0]->K[0]) continue;
    off.push_back(near.distance / particles[k].radius);
    ++kept_outliers["agreeing " + std::to_string(std::min(verdicts.agreeing_views[k], 4)) + ", seeing " +
                    std::to_string(std::min(verdicts.seeing_views[k], 6))];
    ++kept_outliers["near " + scene::surface_group(world.shapes[near.shape], {p.x, p.y, p.z}) + ", own views " +
                    std::to_string(std::min(t.views, 9))];
  }
  std::sort(off.begin(), off.end());
  std::cout << "\nplanted outliers kept off every surface: " << off.size() << " (distance in own footprints: median "
            << (off.empty() ? 0.0 : off[off.size() / 2]) << ")\n";
  for (const auto& [key, n] : kept_outliers) std::cout << "  " << std::left << std::setw(40) << key << std::right << n << "\n";
  std::cout << "\n2-view points no view judges: true surface beyond the facing limit " << unseen_why[0]
            << ", estimated normal beyond it " << unseen_why[1] << ", facing view silent " << unseen_why[2] << "\n";
  std::cout << "\nlast support filter (% of each row's points):\n"
            << "surface            points   removed    unseen  no agree\n"
            << std::fixed << std::setprecision(1);
  for (const auto& [name, r] : rows)
    std::cout << std::left << std::setw(16) << name.substr(2) << std::right << std::setw(9) << r.n << std::setw(10)
              << 100.0 * r.fail / r.n << std::setw(10) << 100.0 * r.unseen / r.n << std::setw(10)
              << 100.0 * r.unconfirmed / r.n << "\n";
}

// Why the facing views say nothing on a two-view point that no view judges: what the view's pixel
// where the point lands holds, for the view that sees the point's own surface there if any.
void print_silent_views(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                        const std::vector<float3>& normals, const std::vector<Camera*>& cameras,
                        const std::vector<CMatrix<float>>& measured, const std::vector<std::vector<PixelTruth>>& truth,
                        const ViewVerdicts& verdicts, const std::vector<float>& margin, float cos_limit,
                        const scene::Scene& world) {
  const std::vector<ViewCover> covers = view_covers(particles, offsets, cameras);
  std::map<std::string, long> why;
  std::vector<double> own_off, view_off, measured_off;  // in the view's footprints, along its ray
  for (size_t k = 0; k < particles.size(); ++k) {
    const PixelTruth& t = truth[particles[k].camera_index][particles[k].pixel_index];
    if (t.shape < 0 || t.views != 2 || margin[k] >= 0 || verdicts.seeing_views[k] != 0) continue;
    const float3 m = particles[k].pos;
    if (scene::length(scene::Vec3{m.x, m.y, m.z} - t.point) > 0.1) continue;
    const float3 p = particle_position(particles[k], offsets[k]);
    std::string best = "no facing view on its image";
    const std::string group = scene::surface_group(world.shapes[t.shape], t.point) + ", ";
    for (size_t c = 0; c < cameras.size(); ++c) {
      const Camera& cam = *cameras[c];
      if (cam.index == particles[k].camera_index) continue;
      const float3 towards = make_float3(cam.center[0], cam.center[1], cam.center[2]) - p;
      if (!(dot(normals[k], towards) / length(towards) >= cos_limit)) continue;
      const float* R = cam.R;
      const float cx = R[0] * p.x + R[3] * p.y + R[6] * p.z + cam.t[0];
      const float cy = R[1] * p.x + R[4] * p.y + R[7] * p.z + cam.t[1];
      const float cz = R[2] * p.x + R[5] * p.y + R[8] * p.z + cam.t[2];
      const float ax = static_cast<float>(cam.width - 1) - (cx * cam.K[0] / cz + cam.K[6]);
      const float ay = static_cast<float>(cam.height - 1) - (cy * cam.K[4] / cz + cam.K[7]);
      const int x = static_cast<int>(std::lround(ax)), y = static_cast<int>(std::lround(ay));
      if (!(cz > 0 && x >= 0 && y >= 0 && x < cam.width && y < cam.height)) continue;
      const float fp = cz / cam.K[0];
      const PixelTruth& there = truth[cam.index][y * cam.width + x];
      const auto depth_in_view = [&](scene::Vec3 q) {
        return R[2] * q.x + R[5] * q.y + R[8] * q.z + cam.t[2];
      };
      // Where the particle's own true point lies in this view, against the view's true surface there.
      const double true_own = depth_in_view(t.point), true_there = there.shape < 0 ? 1e9 : depth_in_view(there.point);
      std::string key = there.shape != t.shape ? "other surface at the pixel" : "same surface at the pixel";
      if (there.shape == t.shape && true_own > true_there + 2 * fp) key = "same surface, own point hidden";
      const int cover = covers[c].particle[y * cam.width + x];
      if (cover < 0) {
        if (best.rfind("same", 0) != 0) best = key + ": no cover";
        continue;
      }
      const float3 q = particle_position(particles[cover], offsets[cover]);
      const float zq = R[2] * q.x + R[5] * q.y + R[8] * q.z + cam.t[2];
      const float delta = (cz - zq) / fp;  // > 0: the point lies behind the view's particle
      const float mz = measured[cam.index](x, y);
      const float3 d = p - q;
      const float tangent = std::fabs(dot(normals[cover], d)) / particles[cover].radius;
      key += delta > 1 ? ": behind" : delta < -1 ? ": in front" : ": level";
      if (std::fabs(delta) <= 1) key += tangent > 1 ? ", off tangent" : dot(normals[k], normals[cover]) < 0 ? ", normals apart" : ", far";
      if (best.rfind("same", 0) != 0) best = key;
      if (there.shape == t.shape) {
        own_off.push_back((cz - true_own) / fp);
        view_off.push_back((zq - true_there) / fp);
        if (mz > 0) measured_off.push_back((cz - mz) / fp);
      }
    }
    ++why[group + best];
  }
  std::cout << "\n2-view points no view judges, by what the most telling facing view holds at the pixel where\n"
               "the point lands (the same surface or another by the truth; the point behind, level with or in\n"
               "front of the view's particle there):\n";
  for (const auto& [k, n] : why) std::cout << "  " << std::left << std::setw(60) << k << std::right << n << "\n";
  const auto median_abs = [](std::vector<double> v) {
    for (double& x : v) x = std::fabs(x);
    if (v.empty()) return 0.0;
    std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
    return v[v.size() / 2];
  };
  std::cout << "  same surface, median |error| along the view's ray in its footprints: the point "
            << median_abs(own_off) << ", the view's particle " << median_abs(view_off)
            << ", the point against the view's measured depth " << median_abs(measured_off) << "\n";
}

// How near each particle lies to its own pixel's true point, per row (by the views that see the
// pixel, and the surface two views see by kind of surface): particles, share within 5 mm, median
// distance. Along a ray seen obliquely a particle can be on its surface and far from its point.
using NearRows = std::map<std::string, std::vector<double>>;
NearRows near_own_points(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<std::vector<PixelTruth>>& truth, const scene::Scene& world) {
  NearRows rows;
  for (size_t k = 0; k < particles.size(); ++k) {
    const PixelTruth& t = truth[particles[k].camera_index][particles[k].pixel_index];
    if (t.shape < 0) continue;
    const float3 q = particle_position(particles[k], offsets[k]);
    const double d = scene::length(scene::Vec3{q.x, q.y, q.z} - t.point);
    rows[std::to_string(std::min(t.views, 5)) + " views"].push_back(d);
    if (t.views == 2) rows["2 views " + scene::surface_group(world.shapes[t.shape], t.point)].push_back(d);
  }
  return rows;
}

void print_near_own_points(const std::vector<std::pair<std::string, NearRows>>& stages) {
  std::cout << "\nparticles near their own true point (share within 5 mm %, median distance mm), by stage:\n"
            << std::left << std::setw(22) << "row" << std::right;
  for (const auto& stage : stages) std::cout << std::setw(24) << stage.first;
  std::cout << "\n" << std::fixed << std::setprecision(1);
  for (const auto& [row, unused] : stages.front().second) {
    std::cout << std::left << std::setw(22) << row << std::right;
    for (const auto& stage : stages) {
      auto it = stage.second.find(row);
      if (it == stage.second.end()) {
        std::cout << std::setw(24) << "-";
        continue;
      }
      std::vector<double> d = it->second;
      const double within = std::count_if(d.begin(), d.end(), [](double x) { return x <= 0.005; });
      std::nth_element(d.begin(), d.begin() + d.size() / 2, d.end());
      std::ostringstream cell;
      cell << std::fixed << std::setprecision(1) << d.size() << " " << 100.0 * within / d.size() << " "
           << 1000.0 * d[d.size() / 2];
      std::cout << std::setw(24) << cell.str();
    }
    std::cout << "\n";
  }
}

// The median angle between the estimated and the true normals, per row as near_own_points.
void print_normal_errors(const char* stage, const std::vector<Particle>& particles, const std::vector<float3>& normals,
                         const std::vector<std::vector<PixelTruth>>& truth, const scene::Scene& world) {
  std::map<std::string, std::vector<double>> rows;
  for (size_t k = 0; k < particles.size(); ++k) {
    const PixelTruth& t = truth[particles[k].camera_index][particles[k].pixel_index];
    if (t.shape < 0) continue;
    const float3 n = normals[k];
    const double c = (n.x * t.normal.x + n.y * t.normal.y + n.z * t.normal.z) / std::max(1e-9f, length(n));
    const double angle = std::acos(std::clamp(c, -1.0, 1.0)) * 180.0 / M_PI;
    rows[std::to_string(std::min(t.views, 5)) + " views"].push_back(angle);
    if (t.views == 2) rows["2 views " + scene::surface_group(world.shapes[t.shape], t.point)].push_back(angle);
  }
  std::cout << "\nnormal error " << stage << " (median deg, share > 10 deg):";
  for (auto& [row, v] : rows) {
    const double over = std::count_if(v.begin(), v.end(), [](double a) { return a > 10; });
    std::nth_element(v.begin(), v.begin() + v.size() / 2, v.end());
    std::cout << "\n  " << std::left << std::setw(20) << row << std::right << std::setw(8) << std::setprecision(1)
              << std::fixed << v[v.size() / 2] << std::setw(8) << 100.0 * over / v.size();
  }
  std::cout << "\n";
}

// Processor time of the stage that ends here, on standard error.
void stage_time(const char* stage) {
  static std::clock_t last = std::clock();
  const std::clock_t now = std::clock();
  std::cerr << "cpu " << stage << ": " << static_cast<double>(now - last) / CLOCKS_PER_SEC << " s\n";
  last = now;
}

}  // namespace

int main(int argc, char* argv[]) {
  stage_time("start");
  std::vector<std::string> view_files;
  try {
    view_files = parse_command_line(argc, argv);
    check_view_files(view_files);
  } catch (const CommandLineExit& e) {
    return e.status;
  } catch (const RunError& e) {
    std::cerr << e.what() << "\n";
    return 1;
  }
  std::vector<Camera> cameras;
  std::vector<Camera*> camera_ptrs;
  std::vector<CMatrix<float>> depthmaps;
  read_views(view_files, cameras, camera_ptrs, depthmaps);
  const StageOptions stages = make_stage_options(cameras[0]);
  stage_time("reading");
  const std::string scene_dir = std::filesystem::path(view_files[0]).parent_path().string();
  const scene::Scene world = scene::make_scene(scene::read_scene_kind(scene_dir));
  const auto truth = pixel_truth(world, scene::read_scene_cameras(scene_dir));
  stage_time("truth (ray casting)");

  std::vector<std::vector<Superpixel>> superpixels(n_keyframes);
  std::vector<Particle> sp_particles, particles;
  std::vector<float> sp_offsets, offsets;
  std::vector<float3> sp_normals, normals;
  std::map<Key, int> fate;  // per input pixel with a depth
  for (int i = 0; i < n_keyframes; ++i)
    for (int y = 0; y < cameras[i].height; ++y)
      for (int x = 0; x < cameras[i].width; ++x)
        if (usable_depth(depthmaps[i](x, y), depth_range_min, depth_range_max)) fate[{i, y * cameras[i].width + x}] = kNoSuperpixel;
  if (stages.fine_start == FineStart::measured_planes) {
    // As quillara does: particles on planes fitted to each pixel's measured neighbourhood.
    particles_on_measured_planes(particles, offsets, normals, camera_ptrs, depthmaps, depth_range_min,
                                 depth_range_max);
  } else {
    for (int i = 0; i < n_keyframes; ++i) {
      create_superpixels(superpixels[i], depthmaps[i], cameras[i].image, cameras[i], average_depth, superpixel_count);
      create_particles_from_superpixels(sp_particles, sp_offsets, sp_normals, superpixels[i], CMatrix<float>(),
                                        CMatrix<float3>(), depthmaps[i], cameras[i]);
    }
    const auto mark_superpixels = [&](Fate f) {
      for (const Particle& p : sp_particles)
        for (const auto& [x, y] : superpixels[p.camera_index][p.pixel_index].pixels)
          if (auto it = fate.find({p.camera_index, y * cameras[p.camera_index].width + x}); it != fate.end())
            it->second = f;
    };
    mark_superpixels(kCoarseRemoved);
    filter_particles(sp_particles, sp_offsets, sp_normals, stages.superpixel_filter);
    stage_time("superpixels and coarse filter");
    support_filter(sp_particles, sp_offsets, sp_normals, camera_ptrs, stages.superpixel_support);
    stage_time("coarse support filter");
    mark_superpixels(kNoScaffold);
    for (int i = 0; i < n_keyframes; ++i) {
      CMatrix<float> depth;
      CMatrix<float3> normal_map;
      particles_to_images(depth, normal_map, sp_particles, sp_offsets, sp_normals, superpixels[i], cameras[i],
                          depth_range_min, depth_range_max);
      create_particles_from_depthmap(particles, offsets, normals, depth, normal_map, depthmaps[i], cameras[i].image,
                                     cameras[i], depth_range_min, depth_range_max);
    }
  }
  const float r5 = stages.radii.pixel_filter;
  const auto own_distance = [&](size_t k) {
    const int shape = truth[particles[k].camera_index][particles[k].pixel_index].shape;
    return shape < 0 ? 1e9 : distance_to_own_surface(world, shape, particles[k], offsets[k]);
  };
  for (size_t k = 0; k < particles.size(); ++k)
    if (auto it = fate.find({particles[k].camera_index, particles[k].pixel_index}); it != fate.end())
      it->second = own_distance(k) > r5 ? kScaffoldOff : kFilteredOff;
  writeParticlesToPLY(particles, offsets, normals, output_directory + "/stage_scaffold.ply");
  std::vector<std::pair<std::string, NearRows>> near_stages = {
      {"start", near_own_points(particles, offsets, truth, world)}};
  print_normal_errors("at the start", particles, normals, truth, world);
  stage_time("fine particles");
  if (!support_rule.visible()) support_filter(particles, offsets, normals, camera_ptrs, stages.pixel_support);
  filter_particles(particles, offsets, normals, stages.pixel_filter);
  if (stages.drift_limit > 0.0f)
    return_drifted_particles(particles, offsets, normals, stages.drift_limit, stages.turn_limit);
  stage_time("fine filter");
  writeParticlesToPLY(particles, offsets, normals, output_directory + "/stage_filtered.ply");
  near_stages.emplace_back("filtered", near_own_points(particles, offsets, truth, world));
  print_normal_errors("after the fine filter", particles, normals, truth, world);
  std::map<Key, bool> on_surface;
  for (size_t k = 0; k < particles.size(); ++k) {
    const Key key{particles[k].camera_index, particles[k].pixel_index};
    on_surface[key] = own_distance(k) <= 0.005;
    if (auto it = fate.find(key); it != fate.end() && it->second == kFilteredOff)
      it->second = on_surface[key] ? kSupportRemoved : kFilteredOff;
  }
  if (support_rule.visible()) print_support_diagnosis(particles, offsets, normals, camera_ptrs, depthmaps, truth, world);
  stage_time("diagnosis");
  support_filter(particles, offsets, normals, camera_ptrs, stages.pixel_support);
  stage_time("last support filter");
  writeParticlesToPLY(particles, offsets, normals, output_directory + "/model.ply");
  near_stages.emplace_back("kept", near_own_points(particles, offsets, truth, world));
  print_near_own_points(near_stages);
  for (const Particle& p : particles)
    if (auto it = fate.find({p.camera_index, p.pixel_index}); it != fate.end())
      it->second = on_surface[{p.camera_index, p.pixel_index}] ? kKept : kKeptOff;

  // Where the kept particles lie along their rays: the share within 5 mm of their own pixel's true
  // point (not only of its surface), and the median angle of incidence of each row's pixels.
  {
    std::map<std::string, std::array<double, 3>> near;  // kept, kept within 5 mm of the point, pixels
    std::map<std::string, std::vector<double>> angles;
    for (const auto& [key, f] : fate) {
      const PixelTruth& t = truth[key.first][key.second];
      if (t.shape < 0) continue;
      const std::string row = std::to_string(std::min(t.views, 5)) + " views";
      angles[row].push_back(t.incidence);
      near[row][2] += 1;
    }
    for (size_t k = 0; k < particles.size(); ++k) {
      const PixelTruth& t = truth[particles[k].camera_index][particles[k].pixel_index];
      if (t.shape < 0) continue;
      const float3 q = particle_position(particles[k], offsets[k]);
      const std::string row = std::to_string(std::min(t.views, 5)) + " views";
      near[row][0] += 1;
      near[row][1] += scene::length(scene::Vec3{q.x, q.y, q.z} - t.point) <= 0.005;
    }
    std::cout << "\nkept points near their own true point:\nviews     kept %  within 5 mm of own point %  median incidence\n";
    for (auto& [row, a] : near) {
      std::vector<double>& g = angles[row];
      std::nth_element(g.begin(), g.begin() + g.size() / 2, g.end());
      std::cout << std::left << std::setw(9) << row << std::right << std::setw(8) << 100.0 * a[0] / a[2] << std::setw(20)
                << 100.0 * a[1] / std::max(1.0, a[0]) << std::setw(18) << g[g.size() / 2] << "\n";
    }
  }

  // Pictures of the fates: per view, pixels seen by 1 or 2 views (and rods) coloured by their fate,
  // the rest grey by fate.
  const unsigned char colours[kFates][3] = {{128, 0, 128}, {255, 0, 255}, {0, 255, 255}, {0, 128, 128},
                                            {255, 255, 0}, {255, 0, 0},   {0, 200, 0},   {0, 0, 255}};
  for (int v = 0; v < n_keyframes; ++v) {
    const int w = cameras[v].width, h = cameras[v].height;
    std::vector<uint8_t> rgb(3 * w * h, 0);
    for (const auto& [key, f] : fate) {
      if (key.first != v) continue;
      const PixelTruth& t = truth[v][key.second];
      const bool few = t.views <= 2 || (t.shape >= 0 && world.shapes[t.shape].name.rfind("rod", 0) == 0);
      for (int c = 0; c < 3; ++c)
        rgb[3 * key.second + c] = few ? colours[f][c] : static_cast<uint8_t>(f >= kKept ? 90 : 40 + 10 * f);
    }
    const std::string path = output_directory + "/fates_" + std::to_string(v) + ".png";
    png_io::write_png(path.c_str(), "few_views_stages", w, h, 3, rgb);
  }

  // Rows: kinds of surface, then the number of views that see the pixel's surface.
  std::map<std::string, std::array<long, kFates>> rows;
  for (const auto& [key, f] : fate) {
    const PixelTruth& t = truth[key.first][key.second];
    if (t.shape < 0) continue;
    const std::string group = "a " + scene::surface_group(world.shapes[t.shape], t.point);
    ++rows[group][f];
    ++rows["b " + std::to_string(std::min(t.views, 5)) + (t.views >= 5 ? "+ views" : " views")][f];
    ++rows["c all"][f];
  }
  std::cout << "\nwhere the input depth pixels go (share of each row's pixels, %):\n" << std::left << std::setw(16)
            << "surface" << std::right << std::setw(9) << "pixels";
  for (const char* name : kFateNames) std::cout << std::setw(10) << name;
  std::cout << "\n" << std::fixed << std::setprecision(1);
  for (const auto& [name, counts] : rows) {
    long total = 0;
    for (long c : counts) total += c;
    std::cout << std::left << std::setw(16) << name.substr(2) << std::right << std::setw(9) << total;
    for (long c : counts) std::cout << std::setw(10) << 100.0 * c / total;
    std::cout << "\n";
  }
  return 0;
}
