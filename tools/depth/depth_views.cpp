#include "tools/depth/depth_views.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include "tools/scene/png_io.h"
#include "tools/scene/render_view.h"

namespace depth_tool {
namespace {

std::string in_quotes(const std::string& text) { return "\"" + text + "\""; }

[[noreturn]] void fail(const std::string& file, const std::string& cause) {
  throw DepthError("view file " + in_quotes(file) + ": " + cause);
}

// The first MiB of the file: 25 tokens fit in far less.
std::string read_text(const std::string& file) {
  if (std::filesystem::is_directory(file)) fail(file, "is a directory");
  std::ifstream in(file, std::ios::binary);
  if (!in) fail(file, std::string("cannot be opened: ") + std::strerror(errno));
  std::string text(1 << 20, '\0');
  in.read(text.data(), static_cast<std::streamsize>(text.size()));
  if (in.bad()) fail(file, "cannot be read");
  text.resize(static_cast<std::size_t>(in.gcount()));
  return text;
}

// The camera as the program makes it from the tokens: K and R by columns, the centre, the
// principal point mirrored, and the intrinsics scaled to the colour image.
void set_camera(Camera& camera, const ViewFileTokens& view, int index) {
  for (int r = 0; r < 3; ++r) {
    for (int c = 0; c < 3; ++c) {
      camera.K[3 * c + r] = view.K[3 * r + c];
      camera.R[3 * c + r] = view.R[3 * r + c];
    }
    camera.t[r] = view.t[r];
  }
  for (int r = 0; r < 3; ++r)
    camera.center[r] = -(camera.R[3 * r] * camera.t[0] + camera.R[3 * r + 1] * camera.t[1] +
                         camera.R[3 * r + 2] * camera.t[2]);
  camera.width = view.width;
  camera.height = view.height;
  camera.index = index;
  camera.K[6] = static_cast<float>(view.width - 1) - camera.K[6];
  camera.K[7] = static_cast<float>(view.height - 1) - camera.K[7];
  camera.image_filename = view.image_path;
  camera.loadImage();
}

// The range of the non-zero depths of an existing depth map of the image's size.
void read_depth_range(DepthView& v) {
  const std::string& path = v.tokens.depth_path;
  if (!std::filesystem::exists(path)) return;
  CMatrix<unsigned short> raw;
  try {
    raw.readFromPNG(path.c_str());
  } catch (const std::exception& e) {
    fail(v.file, "depth map " + in_quotes(path) + ": " + e.what());
  }
  if (raw.xSize != v.camera.width || raw.ySize != v.camera.height)
    fail(v.file, "the depth map " + in_quotes(path) + " is " + std::to_string(raw.xSize) + " x " +
                     std::to_string(raw.ySize) + " but the colour image is " + std::to_string(v.camera.width) +
                     " x " + std::to_string(v.camera.height));
  unsigned short lo = 65535, hi = 0;
  for (std::size_t i = 0; i < raw.size(); ++i)
    if (raw.data[i] != 0) lo = std::min(lo, raw.data[i]), hi = std::max(hi, raw.data[i]);
  if (hi == 0) return;
  v.has_depth_range = true;
  v.depth_min = static_cast<float>(lo / 1000.0);
  v.depth_max = static_cast<float>(hi / 1000.0);
}

}  // namespace

DepthView read_depth_view(const std::string& file, int index, bool read_depth) {
  DepthView v;
  v.file = file;
  v.text = read_text(file);
  if (const std::string problem = parse_view_file(v.text, v.tokens); !problem.empty()) fail(file, problem);
  try {
    set_camera(v.camera, v.tokens, index);
  } catch (const std::exception& e) {
    fail(file, "colour image " + in_quotes(v.tokens.image_path) + ": " + e.what());
  }
  if (read_depth) read_depth_range(v);
  return v;
}

std::string with_depth_path(const DepthView& view, const std::string& depth_path) {
  // The 25th white-space separated token of the text.
  const auto space = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; };
  const std::string& t = view.text;
  std::size_t i = 0, start = 0;
  for (int token = 0; token < 25; ++token) {
    while (i < t.size() && space(t[i])) ++i;
    start = i;
    while (i < t.size() && !space(t[i])) ++i;
  }
  return t.substr(0, start) + depth_path + t.substr(i);
}

void write_depth_png(const std::string& path, const CMatrix<float>& depth) {
  std::vector<uint16_t> values(depth.size());
  for (std::size_t i = 0; i < values.size(); ++i)
    values[i] = depth.data[i] > 0.0f ? scene::quantise_depth(depth.data[i]) : 0;
  try {
    scene::write_png_gray16(path, depth.xSize, depth.ySize, values);
  } catch (const std::exception& e) {
    throw DepthError(path + ": " + e.what());
  }
}

void write_text_file(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) throw DepthError(path + ": cannot be written: " + std::strerror(errno));
}

}  // namespace depth_tool
