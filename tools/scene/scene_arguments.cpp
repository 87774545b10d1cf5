#include "tools/scene/scene_arguments.h"

#include <cstdint>
#include <limits>

#include "tools/cli/arguments.h"

namespace scene {
namespace {

// "DEGREES,FOOTPRINTS", two numbers of at least 0, at most 45 degrees and 1000 footprints.
bool parse_perturbation(const std::string& text, PosePerturbation& p) {
  const size_t comma = text.find(',');
  return comma != std::string::npos && parse_number(text.substr(0, comma), p.degrees) &&
         parse_number(text.substr(comma + 1), p.footprints) && p.degrees >= 0 && p.degrees <= 45 &&
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
         "                 (also for 0,0)\n"
         "  --rig-error A,T\n"
         "                 move all written poses alike, as one rig: the world turned by A degrees\n"
         "                 about an axis through the scene's centre and shifted by T pixel footprints\n"
         "                 (after --pose-error); the cameras stay as true to each other as they were\n"
         "  --arrangement A\n"
         "                 ring (cameras round the sample scene) or street (a long street of objects\n"
         "                 with cameras along it, each seeing a few metres; for scale) (default ring)\n"
         "  --kind K       the scene: standard, mixed (more and thinner rods) or thin (mostly rods\n"
         "                 and sheets) (default standard)\n"
         "  --appearance A standard, photograph (texture at several scales with weak patches, a dark\n"
         "                 background, gain, offset, sensor noise and blur differing per view) or\n"
         "                 checks-stripes (8 cm flat checks and smooth stripes); the depth maps are\n"
         "                 the same in all (default standard)\n"
         "  --help         print this text; --version prints the version\n"
         "\n"
         "Files: view_NN.txt, image_NN.png (8-bit RGB), depth_NN.png (16-bit, thousandths of the\n"
         "length unit, 0 = no surface), ground_truth.ply, average_depth.txt, and with --outliers\n"
         "outliers.ply (the planted points), and for another kind than standard scene_kind.txt.\n";
}

SceneOptions parse_scene_arguments(const std::vector<std::string>& args) {
  SceneOptions o;
  const cli::CommandLine line = cli::parse_command_line(
      args,
      {{"--out", "", cli::store_text(o.out_dir, "a directory")},
       {"--views", "", cli::store_number(o.views, 2, 1000, "an integer from 2 to 1000")},
       {"--width", "", cli::store_number(o.width, 8, 16384, "an integer from 8 to 16384")},
       {"--height", "", cli::store_number(o.height, 8, 16384, "an integer from 8 to 16384")},
       {"--noise", "", cli::store_number(o.noise, 0.0, std::numeric_limits<double>::max(), "a number of at least 0")},
       {"--seed", "",
        cli::store_number(o.seed, uint64_t{0}, std::numeric_limits<uint64_t>::max(), "a non-negative integer")},
       {"--outliers", "", cli::store_number(o.outliers, 0.0, 0.5, "a number from 0 to 0.5")},
       {"--pose-error", "",
        [&](const cli::OptionValue& v) {
          if (!parse_perturbation(v.text, o.perturbation))
            v.refuse("DEGREES,FOOTPRINTS with 0 to 45 degrees and 0 to 1000 footprints");
          o.write_true_poses = true;
        }},
       {"--rig-error", "",
        [&](const cli::OptionValue& v) {
          if (!parse_perturbation(v.text, o.rig_error))
            v.refuse("DEGREES,FOOTPRINTS with 0 to 45 degrees and 0 to 1000 footprints");
          o.write_true_poses = true;
        }},
       {"--arrangement", "",
        [&](const cli::OptionValue& v) {
          if (!parse_arrangement(v.text, o.arrangement)) v.refuse("ring or street");
        }},
       {"--layout", "", [&](const cli::OptionValue& v) {
          if (!parse_layout(v.text, o.layout)) v.refuse("colmap-text, colmap-bin, tum or log");
        }},
       {"--kind", "", [&](const cli::OptionValue& v) {
          if (!parse_scene_kind(v.text, o.kind)) v.refuse("standard, mixed or thin");
        }},
       {"--appearance", "", [&](const cli::OptionValue& v) {
          if (!parse_appearance(v.text, o.appearance)) v.refuse("standard, photograph or checks-stripes");
        }}});
  cli::expect_no_words(line);
  if (o.out_dir.empty()) throw cli::UsageError("--out DIR is required");
  // The street places its own rows of objects; a kind would be silently ignored there.
  if (o.arrangement == Arrangement::street && o.kind != SceneKind::standard)
    throw cli::UsageError("--kind cannot be used with --arrangement street: the street has its own objects");
  return o;
}

}  // namespace scene
