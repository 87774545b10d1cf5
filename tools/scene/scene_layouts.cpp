#include "tools/scene/scene_layouts.h"

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <stdexcept>

#include "formats/depth_png.h"
#include "formats/text_file.h"
#include "tools/scene/jpeg_file.h"
#include "tools/scene/little_endian.h"
#include "tools/scene/scene_files.h"

namespace scene {
namespace {

struct Quaternion {
  double w, x, y, z;
};

// Unit quaternion of a rotation matrix (largest-component branch for accuracy).
Quaternion quaternion_of(const Mat3& r) {
  const double* m = r.m;
  const double trace = m[0] + m[4] + m[8];
  if (trace > 0) {
    const double s = 2 * std::sqrt(trace + 1);
    return {0.25 * s, (m[7] - m[5]) / s, (m[2] - m[6]) / s, (m[3] - m[1]) / s};
  }
  if (m[0] > m[4] && m[0] > m[8]) {
    const double s = 2 * std::sqrt(1 + m[0] - m[4] - m[8]);
    return {(m[7] - m[5]) / s, 0.25 * s, (m[1] + m[3]) / s, (m[2] + m[6]) / s};
  }
  if (m[4] > m[8]) {
    const double s = 2 * std::sqrt(1 + m[4] - m[0] - m[8]);
    return {(m[2] - m[6]) / s, (m[1] + m[3]) / s, 0.25 * s, (m[5] + m[7]) / s};
  }
  const double s = 2 * std::sqrt(1 + m[8] - m[0] - m[4]);
  return {(m[3] - m[1]) / s, (m[2] + m[6]) / s, (m[5] + m[7]) / s, 0.25 * s};
}

Mat3 transposed(const Mat3& a) { return {{a.m[0], a.m[3], a.m[6], a.m[1], a.m[4], a.m[7], a.m[2], a.m[5], a.m[8]}}; }

std::string format(const char* pattern, double a) {
  char buf[64];
  std::snprintf(buf, sizeof buf, pattern, a);
  return buf;
}

// Numbers separated by single blanks, each exact to the last bit of a double.
std::string numbers(std::initializer_list<double> values) {
  std::string out;
  for (double v : values) out += (out.empty() ? "" : " ") + format("%.17g", v + 0.0);
  return out;
}

std::string subdir(const std::string& dir, const char* name) {
  const std::string path = dir + "/" + name;
  std::filesystem::create_directories(path);
  return path;
}

std::string colmap_image_name(int view) { return image_file_name(view); }
std::string timestamp(double t) { return format("%.6f", t); }
std::string frame_name(int view, const char* extension) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%06d.%s", view, extension);
  return buf;
}

// Depth of the view file (whole thousandths) in length units, so every layout holds exactly the
// depths of the native files.
double native_depth(const RenderedView& view, size_t i) { return view.depth_mm[i] / 1000.0; }

// Float array file: text header "width&height&channels&", then the floats row by row.
void write_depth_array(const std::string& path, const RenderedView& view) {
  std::string out = std::to_string(view.width) + "&" + std::to_string(view.height) + "&1&";
  out.reserve(out.size() + 4 * view.depth_mm.size());
  for (size_t i = 0; i < view.depth_mm.size(); ++i) put_le(out, static_cast<float>(native_depth(view, i)));
  write_text(path, out);
}

// Even views use a PINHOLE camera, odd views a SIMPLE_PINHOLE one with the same numbers (the
// generator's fx equals fy). Colmap puts pixel centres at half-integers, hence the 0.5.
constexpr uint32_t pinhole_camera_id = 1, simple_camera_id = 2;
uint32_t camera_id_of(int view) { return view % 2 == 0 ? pinhole_camera_id : simple_camera_id; }

void write_colmap_text(const std::string& sparse, const std::vector<SceneCamera>& cameras) {
  const SceneCamera& c = cameras.front();
  write_text(sparse + "/cameras.txt",
             "# Camera list with one line of data per camera:\n#   CAMERA_ID, MODEL, WIDTH, HEIGHT, PARAMS[]\n"
             "# Number of cameras: 2\n" +
                 std::to_string(pinhole_camera_id) + " PINHOLE " + std::to_string(c.width) + " " +
                 std::to_string(c.height) + " " + numbers({c.fx, c.fy, c.cx + 0.5, c.cy + 0.5}) + "\n" +
                 std::to_string(simple_camera_id) + " SIMPLE_PINHOLE " + std::to_string(c.width) + " " +
                 std::to_string(c.height) + " " + numbers({c.fx, c.cx + 0.5, c.cy + 0.5}) + "\n");
  std::string images =
      "# Image list with two lines of data per image:\n#   IMAGE_ID, QW, QX, QY, QZ, TX, TY, TZ, CAMERA_ID, NAME\n"
      "#   POINTS2D[] as (X, Y, POINT3D_ID)\n# Number of images: " +
      std::to_string(cameras.size()) + "\n";
  for (size_t i = 0; i < cameras.size(); ++i) {
    const Quaternion q = quaternion_of(cameras[i].R);
    const Vec3 t = cameras[i].t;
    images += std::to_string(i + 1) + " " + numbers({q.w, q.x, q.y, q.z, t.x, t.y, t.z}) + " " +
              std::to_string(camera_id_of(static_cast<int>(i))) + " " + colmap_image_name(static_cast<int>(i)) + "\n";
    // Odd images carry two observations of no 3-D point, even ones an empty line, as both occur.
    images += i % 2 ? "10.5 20.5 -1 30.25 40.75 -1\n" : "\n";
  }
  write_text(sparse + "/images.txt", images);
  write_text(sparse + "/points3D.txt",
             "# 3D point list with one line of data per point:\n"
             "#   POINT3D_ID, X, Y, Z, R, G, B, ERROR, TRACK[] as (IMAGE_ID, POINT2D_IDX)\n"
             "# Number of points: 0, mean track length: 0\n");
}

// Little-endian binary model: counts as uint64, ids as uint32, model ids as int32, sizes as
// uint64, numbers as double, names NUL-terminated.
void write_colmap_binary(const std::string& sparse, const std::vector<SceneCamera>& cameras) {
  const SceneCamera& c = cameras.front();
  std::string out;
  put_le<uint64_t>(out, 2);
  put_le<uint32_t>(out, pinhole_camera_id);
  put_le<int32_t>(out, 1);  // PINHOLE
  put_le<uint64_t>(out, c.width);
  put_le<uint64_t>(out, c.height);
  for (double p : {c.fx, c.fy, c.cx + 0.5, c.cy + 0.5}) put_le(out, p);
  put_le<uint32_t>(out, simple_camera_id);
  put_le<int32_t>(out, 0);  // SIMPLE_PINHOLE
  put_le<uint64_t>(out, c.width);
  put_le<uint64_t>(out, c.height);
  for (double p : {c.fx, c.cx + 0.5, c.cy + 0.5}) put_le(out, p);
  write_text(sparse + "/cameras.bin", out);

  out.clear();
  put_le<uint64_t>(out, cameras.size());
  for (size_t i = 0; i < cameras.size(); ++i) {
    const Quaternion q = quaternion_of(cameras[i].R);
    const Vec3 t = cameras[i].t;
    put_le<uint32_t>(out, static_cast<uint32_t>(i + 1));
    for (double v : {q.w, q.x, q.y, q.z, t.x, t.y, t.z}) put_le(out, v);
    put_le<uint32_t>(out, camera_id_of(static_cast<int>(i)));
    out += colmap_image_name(static_cast<int>(i));
    out += '\0';
    const uint64_t observations = i % 2 ? 2 : 0;
    put_le(out, observations);
    for (uint64_t k = 0; k < observations; ++k) {
      put_le(out, 10.5 + k);
      put_le(out, 20.5 + k);
      put_le<uint64_t>(out, UINT64_MAX);  // no 3-D point
    }
  }
  write_text(sparse + "/images.bin", out);
  out.clear();
  put_le<uint64_t>(out, 0);
  write_text(sparse + "/points3D.bin", out);
}

// Solution of m x = b by Cramer's rule.
Vec3 solve(const Mat3& m, Vec3 b) {
  const Vec3 c0{m.m[0], m.m[3], m.m[6]}, c1{m.m[1], m.m[4], m.m[7]}, c2{m.m[2], m.m[5], m.m[8]};
  const double det = dot(c0, cross(c1, c2));
  return {dot(b, cross(c1, c2)) / det, dot(c0, cross(b, c2)) / det, dot(c0, cross(c1, b)) / det};
}

// Camera-to-world pose: rotation R^T and a centre c with R c = -t solved exactly. The 32-bit R is
// orthonormal only to float precision, so -R^T t would come back from a reader (t = -R c) a bit
// off; this centre brings the view file's translation back to the last bit.
struct Pose {
  Mat3 rotation;
  Vec3 centre;
};
Pose pose_of(const SceneCamera& c) { return {transposed(c.R), solve(c.R, -c.t)}; }

void write_tum_index(const std::string& dir, const std::vector<SceneCamera>& cameras) {
  std::string rgb = "# color images\n# timestamp filename\n", depth = "# depth maps\n# timestamp filename\n";
  std::string truth = "# ground truth trajectory\n# timestamp tx ty tz qx qy qz qw\n";
  for (size_t i = 0; i < cameras.size(); ++i) {
    const int v = static_cast<int>(i);
    rgb += timestamp(tum_colour_time(v)) + " rgb/" + timestamp(tum_colour_time(v)) + ".jpg\n";
    depth += timestamp(tum_depth_time(v)) + " depth/" + timestamp(tum_depth_time(v)) + ".png\n";
    // The pose at the depth time, and between two views the pose of the next one, so that the
    // trajectory is denser than the frames as recorded trajectories are.
    for (int k = 0; k < (i + 1 < cameras.size() ? 2 : 1); ++k) {
      const Pose p = pose_of(cameras[i + k]);
      const Quaternion q = quaternion_of(p.rotation);
      truth += timestamp(tum_depth_time(v) + 0.05 * k) + " " +
               numbers({p.centre.x, p.centre.y, p.centre.z, q.x, q.y, q.z, q.w}) + "\n";
    }
  }
  write_text(dir + "/rgb.txt", rgb);
  write_text(dir + "/depth.txt", depth);
  write_text(dir + "/groundtruth.txt", truth);
}

void write_log_index(const std::string& dir, const std::vector<SceneCamera>& cameras) {
  std::string log;
  for (size_t i = 0; i < cameras.size(); ++i) {
    const Pose p = pose_of(cameras[i]);
    const double* r = p.rotation.m;
    log += std::to_string(i) + " " + std::to_string(i) + " " + std::to_string(i + 1) + "\n";
    log += numbers({r[0], r[1], r[2], p.centre.x}) + "\n" + numbers({r[3], r[4], r[5], p.centre.y}) + "\n" +
           numbers({r[6], r[7], r[8], p.centre.z}) + "\n" + numbers({0, 0, 0, 1}) + "\n";
  }
  write_text(dir + "/trajectory.log", log);
}

}  // namespace

bool parse_layout(const std::string& name, Layout& layout) {
  if (name == "colmap-text") layout = Layout::colmap_text;
  else if (name == "colmap-bin") layout = Layout::colmap_bin;
  else if (name == "tum") layout = Layout::tum;
  else if (name == "log") layout = Layout::log;
  else return false;
  return true;
}

double tum_colour_time(int view) { return 1300000000.0 + 0.1 * view; }
double tum_depth_time(int view) { return tum_colour_time(view) + 0.004; }

void write_layout_view(Layout layout, const std::string& dir, int index, const RenderedView& view) {
  switch (layout) {
    case Layout::none: return;
    case Layout::colmap_text:
    case Layout::colmap_bin: {
      const std::string name = colmap_image_name(index), depth_maps = subdir(dir, "stereo/depth_maps");
      write_colour_png(subdir(dir, "images") + "/" + name, view);
      write_depth_array(depth_maps + "/" + name + ".geometric.bin", view);
      write_depth_array(depth_maps + "/" + name + ".photometric.bin", view);
      return;
    }
    case Layout::tum: {
      std::vector<uint16_t> depth(view.depth_mm.size());
      for (size_t i = 0; i < depth.size(); ++i)
        depth[i] = view.depth_mm[i] <= 65535 / 5 ? static_cast<uint16_t>(view.depth_mm[i] * 5) : 0;
      write_jpeg(subdir(dir, "rgb") + "/" + timestamp(tum_colour_time(index)) + ".jpg", view.width, view.height, 3,
                 view.rgb, 95);
      write_depth_png(subdir(dir, "depth") + "/" + timestamp(tum_depth_time(index)) + ".png", view.width, view.height,
                       depth);
      return;
    }
    case Layout::log:
      write_colour_png(subdir(dir, "color") + "/" + frame_name(index, "png"), view);
      write_depth_png(subdir(dir, "depth") + "/" + frame_name(index, "png"), view.width, view.height, view.depth_mm);
      return;
  }
}

void write_layout_index(Layout layout, const std::string& dir, const std::vector<SceneCamera>& cameras) {
  switch (layout) {
    case Layout::none: return;
    case Layout::colmap_text: write_colmap_text(subdir(dir, "sparse"), cameras); return;
    case Layout::colmap_bin: write_colmap_binary(subdir(dir, "sparse"), cameras); return;
    case Layout::tum: write_tum_index(dir, cameras); return;
    case Layout::log: write_log_index(dir, cameras); return;
  }
}

}  // namespace scene
