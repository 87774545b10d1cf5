#include "tools/scene/scene_arguments.h"

#include <charconv>
#include <cmath>

namespace scene {
namespace {

template <typename T>
bool parse_whole(const std::string& text, T& value) {
  const char* end = text.data() + text.size();
  auto [ptr, ec] = std::from_chars(text.data(), end, value);
  return ec == std::errc() && ptr == end && !text.empty();
}

std::string quoted(const std::string& s) { return "'" + s + "'"; }

// "DEGREES,FOOTPRINTS", two finite numbers of at least 0, at most 45 degrees and 1000 footprints.
bool parse_perturbation(const std::string& text, PosePerturbation& p) {
  const size_t comma = text.find(',');
  if (comma == std::string::npos) return false;
  if (!parse_whole(text.substr(0, comma), p.degrees) || !parse_whole(text.substr(comma + 1), p.footprints))
    return false;
  return std::isfinite(p.degrees) && std::isfinite(p.footprints) && p.degrees >= 0 && p.degrees <= 45 &&
         p.footprints >= 0 && p.footprints <= 1000;
}

}  // namespace

std::string scene_usage() {
  return "Usage: quillara-scene --out DIR [options]\n"
         "Writes a synthetic scene for quillara: view files, colour and depth PNGs, ground truth.\n"
         "\n"
         "  --out DIR      output directory, created when missing (required)\n"
         "  --views N      number of views, at least 2 (default 8)\n"
         "  --width W      image width in pixels, 8 to 16384 (default 640)\n"
         "  --height H     image height in pixels, 8 to 16384 (default 480)\n"
         "  --noise S      standard deviation of the depth noise at depth 1, in length units;\n"
         "                 it grows with depth squared (default 0: exact depths)\n"
         "  --seed K       seed of the depth noise, the outliers and the pose error, a non-negative\n"
         "                 integer (default 1)\n"
         "  --outliers P   give a share P (0 to 0.5) of each view's surface pixels a wrong depth,\n"
         "                 in 8-pixel squares (at 640 pixels wide) 10 to 30 % off (default 0)\n"
         "  --layout L     also write the scene in another tool's layout: colmap-text, colmap-bin\n"
         "                 (sparse model, images, float depth maps), tum (RGB-D sequence with JPEG\n"
         "                 colour and depth in 1/5000) or log (colour, depth, trajectory.log)\n"
         "  --pose-error A,T\n"
         "                 write each view's pose turned by A degrees and its centre moved by T pixel\n"
         "                 footprints, in directions drawn from the seed and the view; images and\n"
         "                 depth maps stay those of the true poses, which go to true_view_NN.txt\n"
         "  --kind K       the scene: standard, mixed (more and thinner rods) or thin (mostly rods\n"
         "                 and sheets) (default standard)\n"
         "  --help         print this text\n"
         "\n"
         "Files: view_NN.txt, image_NN.png (8-bit RGB), depth_NN.png (16-bit, thousandths of the\n"
         "length unit, 0 = no surface), ground_truth.ply, average_depth.txt, and with --outliers\n"
         "outliers.ply (the planted points), and for another kind than standard scene_kind.txt.\n";
}

ParsedArguments parse_scene_arguments(const std::vector<std::string>& args) {
  ParsedArguments r;
  auto fail = [&r](const std::string& message) {
    r.action = ParsedArguments::Action::error;
    r.error = message;
    return r;
  };
  bool have_out = false;
  for (size_t i = 0; i < args.size(); ++i) {
    std::string name = args[i], value;
    if (name == "--help" || name == "-h") {
      r.action = ParsedArguments::Action::help;
      return r;
    }
    const size_t eq = name.find('=');
    const bool inline_value = name.rfind("--", 0) == 0 && eq != std::string::npos;
    if (inline_value) {
      value = name.substr(eq + 1);
      name = name.substr(0, eq);
    }
    if (name != "--out" && name != "--views" && name != "--width" && name != "--height" && name != "--noise" &&
        name != "--seed" && name != "--layout" && name != "--outliers" &&
        name != "--pose-error" && name != "--kind")
      return fail("unknown option " + quoted(args[i]));
    if (!inline_value) {
      if (i + 1 >= args.size()) return fail("option " + name + " needs a value");
      value = args[++i];
    }
    SceneOptions& o = r.options;
    if (name == "--out") {
      if (value.empty()) return fail("--out needs a directory");
      o.out_dir = value;
      have_out = true;
    } else if (name == "--views") {
      if (!parse_whole(value, o.views) || o.views < 2 || o.views > 1000)
        return fail("--views needs an integer from 2 to 1000, got " + quoted(value));
    } else if (name == "--width" || name == "--height") {
      int& size = name == "--width" ? o.width : o.height;
      if (!parse_whole(value, size) || size < 8 || size > 16384)
        return fail(name + " needs an integer from 8 to 16384, got " + quoted(value));
    } else if (name == "--noise") {
      if (!parse_whole(value, o.noise) || !std::isfinite(o.noise) || o.noise < 0)
        return fail("--noise needs a number of at least 0, got " + quoted(value));
    } else if (name == "--outliers") {
      if (!parse_whole(value, o.outliers) || !(o.outliers >= 0 && o.outliers <= 0.5))
        return fail("--outliers needs a number from 0 to 0.5, got " + quoted(value));
    } else if (name == "--pose-error") {
      if (!parse_perturbation(value, o.perturbation))
        return fail("--pose-error needs DEGREES,FOOTPRINTS with 0 to 45 degrees and 0 to 1000 footprints, got " +
                    quoted(value));
    } else if (name == "--layout") {
      if (!parse_layout(value, o.layout))
        return fail("--layout needs colmap-text, colmap-bin, tum or log, got " + quoted(value));
    } else if (name == "--kind") {
      if (!parse_scene_kind(value, o.kind)) return fail("--kind needs standard, mixed or thin, got " + quoted(value));
    } else {
      if (!parse_whole(value, o.seed)) return fail("--seed needs a non-negative integer, got " + quoted(value));
    }
  }
  if (!have_out) return fail("--out DIR is required");
  return r;
}

}  // namespace scene
