#include "tools/depth/depth_arguments.h"

#include <climits>
#include <limits>

#include "tools/cli/arguments.h"

namespace depth_tool {
namespace {

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
         "  --consistent K        keep a depth only where at least K other views' depth maps agree\n"
         "                        (within 0.004 focal lengths, one pixel at least, within one pixel's\n"
         "                        size in depth, 1 % at most, and normals within 45 degrees), or all\n"
         "                        the views that could see it where fewer could (it lies in their\n"
         "                        image, faces them within 45 degrees and their map has nothing\n"
         "                        clearly nearer there), one at least; default 2, 0 keeps all; the\n"
         "                        count goes to DIR/NAME without extension + \"_agreeing.png\",\n"
         "                        51 grey levels per agreeing view, white from 5 on\n"
         "  --search P            passes of the plane search (default 3): every textured pixel keeps\n"
         "                        its own slanted plane and takes a nearby pixel's or a random one\n"
         "                        whose window matches better; 0 runs the older propagation (below)\n"
         "                        and growth instead (less processor time, fewer depths)\n"
         "  --search-again P      passes of a second plane search in every view, offered the depths\n"
         "                        of its neighbours' maps (default 0: none; more depths where views\n"
         "                        are few, at about the first search's processor time again)\n"
         "  --propagate P         with --search 0: passes in which each depth may give way to a\n"
         "                        nearby pixel's plane whose window matches better (default 4; 0\n"
         "                        skips the step)\n"
         "  --help                print this text; --version prints the version\n"
         "\n"
         "Neighbours are the views nearest by baseline among those whose optical axis lies within\n"
         "60 degrees and whose baseline sees the scene under at least 1 degree. A pixel keeps no depth\n"
         "where its image has too little texture, where the matching finds no distinct best depth or\n"
         "one at an end of the range, or where too few other views confirm it. Neighbours of another\n"
         "exposure are brought to the view's own first and depths are refined on windows that follow\n"
         "the surface's slant. The plane search then compares each window with the views whose axes\n"
         "lie within 100 degrees and scores it by the better half of them, so that a view that does\n"
         "not see the point does not count; a pixel keeps the depth of its best plane where that\n"
         "window's correlation reaches 0.5. A patch of weak texture takes only the plane that most\n"
         "well-matched pixels share (a floor, a wall), where that plane surrounds it and a window\n"
         "wide enough to reach the texture around the patch matches it.\n";
}

DepthOptions parse_depth_arguments(const std::vector<std::string>& args) {
  DepthOptions o;
  const float most = std::numeric_limits<float>::max();
  const cli::CommandLine line = cli::parse_command_line(
      args,
      {{"--out-dir", "-o", cli::store_text(o.out_dir, "a directory")},
       {"--depth-range", "",
        [&](const cli::OptionValue& v) {
          if (!parse_range(v.text, o.near, o.far)) v.refuse("NEAR,FAR, two different positive numbers");
          o.range_given = true;
        }},
       {"--neighbours", "", cli::store_number(o.neighbours, 1, INT_MAX, "a positive integer")},
       {"--labels", "", cli::store_number(o.labels, 2, 1024, "an integer from 2 to 1024")},
       {"--paths", "",
        [&](const cli::OptionValue& v) {
          o.paths = v.number(4, 32, "4, 8, 16 or 32");
          if (o.paths != 4 && o.paths != 8 && o.paths != 16 && o.paths != 32) v.refuse("4, 8, 16 or 32");
        }},
       {"--costs", "",
        [&](const cli::OptionValue& v) {
          if (v.text == "ncc") o.costs = Costs::ncc;
          else if (v.text == "ncc-direct") o.costs = Costs::ncc_direct;
          else if (v.text == "sad") o.costs = Costs::sad;
          else v.refuse("ncc, ncc-direct or sad");
        }},
       {"--p1", "", cli::store_number(o.P1, 0.0f, most, "a number of at least 0")},
       {"--p2", "", cli::store_number(o.P2, 0.0f, most, "a number of at least 0")},
       {"--p2-edge", "", cli::store_number(o.P2_edge, 0.0f, most, "a number of at least 0")},
       {"--consistent", "", cli::store_number(o.consistent, 0, 255, "an integer from 0 to 255")},
       {"--propagate", "", cli::store_number(o.propagate, 0, 64, "an integer from 0 to 64")},
       {"--search", "", cli::store_number(o.search, 0, 64, "an integer from 0 to 64")},
       {"--search-again", "", cli::store_number(o.search_again, 0, 64, "an integer from 0 to 64")}},
      true);
  cli::expect_no_words(line, "; view files go behind '--'");
  if (o.out_dir.empty()) throw cli::UsageError("-o DIR is required");
  if (!line.dashes) throw cli::UsageError("no view files: give them behind '--'");
  if (line.files.size() < 2)
    throw cli::UsageError("needs at least 2 view files behind '--', got " + std::to_string(line.files.size()));
  o.views = line.files;
  return o;
}

}  // namespace depth_tool
