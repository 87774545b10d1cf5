#include "tools/import/import_arguments.h"

#include "tools/import/text_file.h"

namespace importer {
namespace {

std::string quoted(const std::string& s) { return "'" + s + "'"; }

bool positive(const std::string& text, double& value) { return parse_number(text, value) && value > 0; }

bool parse_intrinsics(const std::string& text, Intrinsics& k) {
  std::vector<std::string> parts;
  size_t start = 0;
  for (size_t comma; (comma = text.find(',', start)) != std::string::npos; start = comma + 1)
    parts.push_back(text.substr(start, comma - start));
  parts.push_back(text.substr(start));
  return parts.size() == 4 && positive(parts[0], k.fx) && positive(parts[1], k.fy) && parse_number(parts[2], k.cx) &&
         parse_number(parts[3], k.cy);
}

}  // namespace

std::string import_usage() {
  return "Usage: quillara-import colmap WORKSPACE OUTDIR [options]\n"
         "       quillara-import tum DIR OUTDIR [options]\n"
         "       quillara-import log DIR OUTDIR [options]\n"
         "Turns another tool's views with depth maps into quillara view files (OUTDIR/view_NN.txt)\n"
         "and 16-bit depth PNGs in thousandths (OUTDIR/depth_NN.png), then prints the quillara\n"
         "command to run next.\n"
         "\n"
         "Layouts:\n"
         "  colmap  dense workspace: sparse/cameras and images (.txt or .bin, PINHOLE or\n"
         "          SIMPLE_PINHOLE cameras), images/, stereo/depth_maps/NAME.{geometric,photometric}.bin\n"
         "  tum     RGB-D sequence: rgb.txt, depth.txt (\"timestamp path\"), groundtruth.txt\n"
         "          (\"timestamp tx ty tz qx qy qz qw\", camera to world)\n"
         "  log     color/ and depth/ (paired in name order) and trajectory.log (blocks of\n"
         "          \"id id frame\" and a 4x4 camera-to-world matrix; frame counts from 1)\n"
         "\n"
         "Options:\n"
         "  --every K            keep every K-th view (default 1)\n"
         "  --max-depth D        drop depths beyond D, in the source's length unit\n"
         "  --depth-scale S      depth image units per length unit (tum 5000, log 1000)\n"
         "  --depth-maps KIND    colmap: geometric or photometric (default: geometric where\n"
         "                       present, else photometric)\n"
         "  --trajectory FILE    tum, log: the poses (default DIR/groundtruth.txt, DIR/trajectory.log)\n"
         "  --intrinsics FX,FY,CX,CY\n"
         "                       tum, log: pinhole intrinsics in pixels, pixel centres at whole\n"
         "                       numbers (default 525,525,319.5,239.5)\n"
         "  --help               print this text\n"
         "\n"
         "Depth PNGs hold thousandths of the length unit. Where that would lose the source's\n"
         "precision or overflow 16 bits, the whole scene is scaled by one factor, which is printed.\n";
}

ParsedImportArguments parse_import_arguments(const std::vector<std::string>& args) {
  ParsedImportArguments r;
  auto fail_with = [&r](const std::string& message) {
    r.action = ParsedImportArguments::Action::error;
    r.error = message;
    return r;
  };
  ImportOptions& o = r.options;
  std::vector<std::string> positional;
  bool colmap_option = false, sequence_option = false;  // options that belong to one kind of layout
  for (size_t i = 0; i < args.size(); ++i) {
    std::string name = args[i], value;
    if (name == "--help" || name == "-h") {
      r.action = ParsedImportArguments::Action::help;
      return r;
    }
    if (name.rfind("--", 0) != 0) {
      positional.push_back(name);
      continue;
    }
    const size_t eq = name.find('=');
    if (eq != std::string::npos) {
      value = name.substr(eq + 1);
      name = name.substr(0, eq);
    } else if (name == "--every" || name == "--max-depth" || name == "--depth-scale" || name == "--depth-maps" ||
               name == "--trajectory" || name == "--intrinsics") {
      if (i + 1 >= args.size()) return fail_with("option " + name + " needs a value");
      value = args[++i];
    }
    if (name == "--every") {
      if (!parse_number(value, o.settings.every) || o.settings.every < 1)
        return fail_with("--every needs a positive integer, got " + quoted(value));
    } else if (name == "--max-depth") {
      if (!positive(value, o.settings.max_depth))
        return fail_with("--max-depth needs a positive number, got " + quoted(value));
    } else if (name == "--depth-scale") {
      double s;
      if (!positive(value, s)) return fail_with("--depth-scale needs a positive number, got " + quoted(value));
      o.depth_scale = s;
      sequence_option = true;
    } else if (name == "--depth-maps") {
      if (value == "geometric") o.depth_maps = DepthChoice::geometric;
      else if (value == "photometric") o.depth_maps = DepthChoice::photometric;
      else return fail_with("--depth-maps needs geometric or photometric, got " + quoted(value));
      colmap_option = true;
    } else if (name == "--trajectory") {
      if (value.empty()) return fail_with("--trajectory needs a file");
      o.trajectory = value;
      sequence_option = true;
    } else if (name == "--intrinsics") {
      if (!parse_intrinsics(value, o.intrinsics))
        return fail_with("--intrinsics needs FX,FY,CX,CY with positive FX and FY, got " + quoted(value));
      sequence_option = true;
    } else {
      return fail_with("unknown option " + quoted(args[i]));
    }
  }
  if (positional.size() != 3)
    return fail_with("expected LAYOUT SOURCE OUTDIR, got " + std::to_string(positional.size()) + " arguments");
  const std::string& layout = positional[0];
  if (layout == "colmap") o.layout = SourceLayout::colmap;
  else if (layout == "tum") o.layout = SourceLayout::tum;
  else if (layout == "log") o.layout = SourceLayout::log;
  else return fail_with("unknown layout " + quoted(layout) + "; expected colmap, tum or log");
  if (o.layout == SourceLayout::colmap && sequence_option)
    return fail_with("--depth-scale, --trajectory and --intrinsics are for tum and log");
  if (o.layout != SourceLayout::colmap && colmap_option) return fail_with("--depth-maps is for colmap");
  o.source = positional[1];
  o.settings.out_dir = positional[2];
  if (o.source.empty() || o.settings.out_dir.empty()) return fail_with("SOURCE and OUTDIR must not be empty");
  return r;
}

double depth_scale_of(const ImportOptions& o) {
  if (o.depth_scale) return *o.depth_scale;
  return o.layout == SourceLayout::tum ? 5000 : 1000;
}

std::string trajectory_of(const ImportOptions& o) {
  if (!o.trajectory.empty()) return o.trajectory;
  return o.source + (o.layout == SourceLayout::tum ? "/groundtruth.txt" : "/trajectory.log");
}

}  // namespace importer
