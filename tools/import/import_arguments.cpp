#include "tools/import/import_arguments.h"

#include <climits>

#include "tools/cli/arguments.h"

namespace importer {
namespace {

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
         "  --help               print this text; --version prints the version\n"
         "\n"
         "Depth PNGs hold thousandths of the length unit. Where that would lose the source's\n"
         "precision or overflow 16 bits, the whole scene is scaled by one factor, which is printed.\n";
}

ImportOptions parse_import_arguments(const std::vector<std::string>& args) {
  ImportOptions o;
  bool colmap_option = false, sequence_option = false;  // options that belong to one kind of layout
  const cli::CommandLine line = cli::parse_command_line(
      args,
      {{"--every", "", cli::store_number(o.settings.every, 1, INT_MAX, "a positive integer")},
       {"--max-depth", "",
        [&](const cli::OptionValue& v) {
          if (!positive(v.text, o.settings.max_depth)) v.refuse("a positive number");
        }},
       {"--depth-scale", "",
        [&](const cli::OptionValue& v) {
          double s;
          if (!positive(v.text, s)) v.refuse("a positive number");
          o.depth_scale = s;
          sequence_option = true;
        }},
       {"--depth-maps", "",
        [&](const cli::OptionValue& v) {
          if (v.text == "geometric") o.depth_maps = DepthChoice::geometric;
          else if (v.text == "photometric") o.depth_maps = DepthChoice::photometric;
          else v.refuse("geometric or photometric");
          colmap_option = true;
        }},
       {"--trajectory", "",
        [&](const cli::OptionValue& v) {
          o.trajectory = v.non_empty("a file");
          sequence_option = true;
        }},
       {"--intrinsics", "", [&](const cli::OptionValue& v) {
          if (!parse_intrinsics(v.text, o.intrinsics)) v.refuse("FX,FY,CX,CY with positive FX and FY");
          sequence_option = true;
        }}});
  if (line.words.size() != 3)
    throw cli::UsageError("expected LAYOUT SOURCE OUTDIR, got " + std::to_string(line.words.size()) + " arguments");
  const std::string& layout = line.words[0];
  if (layout == "colmap") o.layout = SourceLayout::colmap;
  else if (layout == "tum") o.layout = SourceLayout::tum;
  else if (layout == "log") o.layout = SourceLayout::log;
  else throw cli::UsageError("unknown layout '" + layout + "'; expected colmap, tum or log");
  if (o.layout == SourceLayout::colmap && sequence_option)
    throw cli::UsageError("--depth-scale, --trajectory and --intrinsics are for tum and log");
  if (o.layout != SourceLayout::colmap && colmap_option) throw cli::UsageError("--depth-maps is for colmap");
  o.source = line.words[1];
  o.settings.out_dir = line.words[2];
  if (o.source.empty() || o.settings.out_dir.empty()) throw cli::UsageError("SOURCE and OUTDIR must not be empty");
  return o;
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
