#include "tools/depth/depth_arguments.h"

#include "tools/parse_number.h"

#include <charconv>
#include <cmath>

namespace depth_tool {
namespace {

std::string quoted(const std::string& s) { return "'" + s + "'"; }

bool parse_range(const std::string& text, float& near, float& far) {
  const size_t comma = text.find(',');
  return comma != std::string::npos && parse_number(text.substr(0, comma), near) &&
         parse_number(text.substr(comma + 1), far) && near > 0 && far > 0 && near != far;
}

}  // namespace

std::string depth_usage() {
  return "Usage: quillara-depth -o DIR [options] -- VIEW...\n"
         "Estimates a depth map for every view from its colour image and those of its neighbouring\n"
         "views (plane sweep and semi-global matching), and writes for each view file NAME the file\n"
         "DIR/NAME (the same view, its depth path replaced) and the 16-bit depth PNG it names\n"
         "(DIR/NAME without extension + \"_depth.png\", thousandths of the length unit, 0 = none).\n"
         "The depth map named by an input view file need not exist.\n"
         "\n"
         "Options:\n"
         "  -o, --out-dir DIR     output directory, created when missing (required)\n"
         "  --depth-range NEAR,FAR\n"
         "                        depths tried in every view (default: per view, the range of its\n"
         "                        input depth map, widened by 5 %; required when a view has none)\n"
         "  --neighbours N        other views per cost volume, at most (default 4)\n"
         "  --labels L            depths tried per pixel, 2 to 1024 (default 128)\n"
         "  --paths P             scan directions of the matching: 4, 8, 16 or 32 (default 8)\n"
         "  --costs KIND          sad (default: absolute colour differences of single pixels, best\n"
         "                        when all views share one exposure), ncc (normalised correlation of\n"
         "                        7 x 7 windows, robust to exposure changes) or ncc-direct (the same\n"
         "                        score reprojecting every window pixel, slower)\n"
         "  --p1 X                penalty of a change by one label (default 0.1)\n"
         "  --p2 X                penalty of a larger change in flat regions (default 1)\n"
         "  --p2-edge X           the same across strong colour edges (default 0.2)\n"
         "  --help                print this text\n"
         "\n"
         "Neighbours are the views nearest by baseline among those whose optical axis lies within\n"
         "60 degrees and whose baseline sees the scene under at least 1 degree.\n";
}

ParsedDepthArguments parse_depth_arguments(const std::vector<std::string>& args) {
  ParsedDepthArguments r;
  auto fail_with = [&r](const std::string& message) {
    r.action = ParsedDepthArguments::Action::error;
    r.error = message;
    return r;
  };
  DepthOptions& o = r.options;
  bool have_out = false;
  size_t i = 0;
  for (; i < args.size() && args[i] != "--"; ++i) {
    std::string name = args[i], value;
    if (name == "--help" || name == "-h") {
      r.action = ParsedDepthArguments::Action::help;
      return r;
    }
    const size_t eq = name.rfind("--", 0) == 0 ? name.find('=') : std::string::npos;
    if (eq != std::string::npos) {
      value = name.substr(eq + 1);
      name = name.substr(0, eq);
    } else {
      if (name != "-o" && name != "--out-dir" && name != "--depth-range" && name != "--neighbours" &&
          name != "--labels" && name != "--paths" && name != "--costs" && name != "--p1" && name != "--p2" &&
          name != "--p2-edge")
        return fail_with("unknown option " + quoted(name) + (name.rfind("-", 0) == 0 ? "" : "; view files go behind '--'"));
      if (i + 1 >= args.size()) return fail_with("option " + name + " needs a value");
      value = args[++i];
    }
    if (name == "-o" || name == "--out-dir") {
      if (value.empty()) return fail_with(name + " needs a directory");
      o.out_dir = value;
      have_out = true;
    } else if (name == "--depth-range") {
      if (!parse_range(value, o.near, o.far))
        return fail_with("--depth-range needs NEAR,FAR, two different positive numbers, got " + quoted(value));
      o.range_given = true;
    } else if (name == "--neighbours") {
      if (!parse_number(value, o.neighbours) || o.neighbours < 1)
        return fail_with("--neighbours needs a positive integer, got " + quoted(value));
    } else if (name == "--labels") {
      if (!parse_number(value, o.labels) || o.labels < 2 || o.labels > 1024)
        return fail_with("--labels needs an integer from 2 to 1024, got " + quoted(value));
    } else if (name == "--paths") {
      if (!parse_number(value, o.paths) || (o.paths != 4 && o.paths != 8 && o.paths != 16 && o.paths != 32))
        return fail_with("--paths needs 4, 8, 16 or 32, got " + quoted(value));
    } else if (name == "--costs") {
      if (value == "ncc") o.costs = Costs::ncc;
      else if (value == "ncc-direct") o.costs = Costs::ncc_direct;
      else if (value == "sad") o.costs = Costs::sad;
      else return fail_with("--costs needs ncc, ncc-direct or sad, got " + quoted(value));
    } else {
      float& p = name == "--p1" ? o.P1 : name == "--p2" ? o.P2 : o.P2_edge;
      if (!parse_number(value, p) || p < 0) return fail_with(name + " needs a number of at least 0, got " + quoted(value));
    }
  }
  if (!have_out) return fail_with("-o DIR is required");
  if (i == args.size()) return fail_with("no view files: give them behind '--'");
  o.views.assign(args.begin() + static_cast<long>(i) + 1, args.end());
  if (o.views.size() < 2)
    return fail_with("needs at least 2 view files behind '--', got " + std::to_string(o.views.size()));
  return r;
}

}  // namespace depth_tool
