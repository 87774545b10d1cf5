#include "tools/import/tum_sequence.h"

#include <algorithm>
#include <cmath>

#include "tools/import/text_file.h"

namespace importer {

std::vector<TimedPath> read_frame_list(const std::string& path) {
  const TextFile file = read_text_file(path);
  std::vector<TimedPath> frames;
  for (size_t i = 0; i < file.lines.size(); ++i) {
    if (is_blank_or_comment(file.lines[i])) continue;
    const std::vector<std::string> f = split_fields(file.lines[i]);
    TimedPath frame;
    if (f.size() != 2 || !parse_number(f[0], frame.time)) file.fail_at(i, "expected \"timestamp path\"");
    frame.path = f[1];
    frames.push_back(frame);
  }
  std::stable_sort(frames.begin(), frames.end(),
                   [](const TimedPath& a, const TimedPath& b) { return a.time < b.time; });
  return frames;
}

std::vector<TimedPose> read_trajectory(const std::string& path) {
  const TextFile file = read_text_file(path);
  std::vector<TimedPose> poses;
  for (size_t i = 0; i < file.lines.size(); ++i) {
    if (is_blank_or_comment(file.lines[i])) continue;
    const std::vector<std::string> f = split_fields(file.lines[i]);
    if (f.size() != 8) file.fail_at(i, "expected \"timestamp tx ty tz qx qy qz qw\"");
    const std::vector<double> v = numbers_at(file, i, f, 0, 8, "\"timestamp tx ty tz qx qy qz qw\" as numbers");
    const double norm = std::sqrt(v[4] * v[4] + v[5] * v[5] + v[6] * v[6] + v[7] * v[7]);
    if (!(norm > 1e-12)) file.fail_at(i, "zero rotation quaternion");
    poses.push_back({v[0], {v[1], v[2], v[3]}, {v[7] / norm, v[4] / norm, v[5] / norm, v[6] / norm}});
  }
  std::stable_sort(poses.begin(), poses.end(), [](const TimedPose& a, const TimedPose& b) { return a.time < b.time; });
  return poses;
}

namespace {

// Index of the entry nearest in time within max_offset, or -1.
template <typename Entry>
long nearest(const std::vector<Entry>& sorted, double time, double max_offset) {
  const auto after =
      std::lower_bound(sorted.begin(), sorted.end(), time, [](const Entry& e, double t) { return e.time < t; });
  long best = -1;
  double best_offset = max_offset;
  for (auto it : {after - (after != sorted.begin() ? 1 : 0), after}) {
    if (it == sorted.end()) continue;
    const double offset = std::abs(it->time - time);
    if (offset <= best_offset) {
      best_offset = offset;
      best = it - sorted.begin();
    }
  }
  return best;
}

Pose pose_of(Quaternion rotation, Vec3 centre) {
  Mat3 r;
  rotation_of(rotation, r);
  return pose_from_camera_to_world(r, centre);
}

}  // namespace

std::optional<Pose> pose_at(const std::vector<TimedPose>& trajectory, double time) {
  const auto after = std::lower_bound(trajectory.begin(), trajectory.end(), time,
                                      [](const TimedPose& p, double t) { return p.time < t; });
  if (after != trajectory.end() && after != trajectory.begin() && after->time > time &&
      after->time - (after - 1)->time <= max_pose_gap) {
    const TimedPose& a = *(after - 1);
    const TimedPose& b = *after;
    const double u = (time - a.time) / (b.time - a.time);
    return pose_of(slerp(a.rotation, b.rotation, u), a.centre + u * (b.centre - a.centre));
  }
  const long i = nearest(trajectory, time, max_pose_offset);
  if (i < 0) return std::nullopt;
  return pose_of(trajectory[i].rotation, trajectory[i].centre);
}

SourceScene read_tum_sequence(const std::string& dir, const std::string& trajectory, const Intrinsics& intrinsics,
                              double depth_scale) {
  const std::vector<TimedPath> colour = read_frame_list(dir + "/rgb.txt");
  const std::vector<TimedPath> depth = read_frame_list(dir + "/depth.txt");
  const std::vector<TimedPose> poses = read_trajectory(trajectory);
  SourceScene scene;
  scene.description = "RGB-D sequence " + dir;
  scene.depth_format = DepthFormat::png16;
  scene.depth_scale = depth_scale;
  int without_colour = 0, without_pose = 0;
  for (const TimedPath& d : depth) {
    const long c = nearest(colour, d.time, max_colour_offset);
    const std::optional<Pose> pose = pose_at(poses, d.time);
    if (c < 0) ++without_colour;
    else if (!pose) ++without_pose;
    if (c < 0 || !pose) continue;
    SourceView view;
    view.name = d.path;
    view.intrinsics = intrinsics;
    view.pose = *pose;
    view.colour_path = dir + "/" + colour[c].path;
    view.depth_path = dir + "/" + d.path;
    scene.views.push_back(view);
  }
  if (depth.empty()) scene.notes.push_back(dir + "/depth.txt lists no frame");
  if (poses.empty()) scene.notes.push_back("the trajectory " + trajectory + " holds no pose");
  if (without_colour > 0)
    scene.notes.push_back(std::to_string(without_colour) + " depth frames without a colour frame within " +
                          std::to_string(static_cast<int>(max_colour_offset * 1000)) + " ms left out");
  if (without_pose > 0)
    scene.notes.push_back(std::to_string(without_pose) + " depth frames without a pose within " +
                          std::to_string(static_cast<int>(max_pose_offset * 1000)) + " ms left out");
  return scene;
}

}  // namespace importer
