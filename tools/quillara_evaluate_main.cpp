// quillara-evaluate: measures a model, or depth maps, made from a generated scene against the true
// surfaces.
#include <cstdio>
#include <functional>
#include <iostream>
#include <memory>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/cli/arguments.h"
#include "tools/cli/tool_main.h"
#include "tools/scene/completeness_breakdown.h"
#include "tools/scene/depth_truth.h"
#include "tools/scene/evaluation.h"
#include "tools/scene/pose_truth.h"

namespace {

const char* const kUsage =
    "Usage: quillara-evaluate SCENE_DIR MODEL.ply [--within MM[,MM...]] [--breakdown] [--rig DIR]\n"
    "       quillara-evaluate SCENE_DIR --depth-maps DIR   (DIR holding view_NN.txt)\n"
    "       quillara-evaluate SCENE_DIR --poses DIR        (DIR holding view_NN.txt)\n"
    "       quillara-evaluate SCENE_DIR MODEL.ply --against OTHER.ply\n"
    "Measures a model, the depth maps or the poses of the view files DIR/view_NN.txt, made from a\n"
    "scene of quillara-scene, against its true surfaces and poses (poses: a scene made with\n"
    "--pose-error or --rig-error), or two models against each other.\n"
    "  --within     also measure completeness and accuracy within these distances, in millimetres\n"
    "  --against    the share of each model's points that have a point of the other within 0.1 and 1\n"
    "               pixel footprint (tiled against untiled runs, say)\n"
    "  --breakdown  completeness per kind of surface and by the number of views that see the\n"
    "               surface, at those distances (default one and two pixel footprints), and F-scores\n"
    "  --rig        first move the model by the rigid motion that brings the camera centres of the\n"
    "               view files DIR/view_NN.txt it was made with closest to the true ones: what is\n"
    "               left is the model's own error, without the error all its cameras share\n"
    "  --help       print this text; --version prints the version\n";

// "2,5" in millimetres to distances in length units.
std::vector<double> millimetres(const cli::OptionValue& v) {
  std::vector<double> distances;
  std::size_t start = 0;
  for (std::size_t comma = 0; comma != std::string::npos; start = comma + 1) {
    comma = v.text.find(',', start);
    double mm = 0;
    if (!parse_number(v.text.substr(start, comma - start), mm) || mm <= 0) v.refuse("positive distances MM[,MM...]");
    distances.push_back(mm / 1000.0);
  }
  return distances;
}

// About what the breakdown holds per model point (the point, its position, label, distance and
// place in the cell order), and the agreement per point of both models (as points, as samples,
// and in a grid).
constexpr size_t kBreakdownBytesPerPoint = 110;
constexpr size_t kAgreementBytesPerPoint = 200;

std::string mebibytes(size_t bytes) { return std::to_string((bytes + (size_t{1} << 20) - 1) >> 20) + " MiB"; }

// A line on standard error every 16 blocks of a pass over the model, so that the measure of a
// large model shows where it stands (small models print nothing).
scene::ModelBlocks with_progress(scene::ModelBlocks blocks) {
  auto inner = blocks.for_each_block;
  auto pass = std::make_shared<int>(0);
  const size_t total = blocks.points;
  blocks.for_each_block = [inner, pass, total](const scene::BlockVisitor& visit) {
    ++*pass;
    size_t done = 0, count = 0;
    inner([&](const std::vector<scene::ModelPoint>& block) {
      visit(block);
      done += block.size();
      if (++count % 16 == 0)
        std::cerr << "quillara-evaluate: pass " << *pass << " over the model, " << done << " of " << total
                  << " points\n";
    });
  };
  return blocks;
}

// Runs `work`; out of memory becomes one line naming the file and what was being done.
template <class Work>
auto within_memory(const std::string& file, const std::string& doing, Work work) {
  try {
    return work();
  } catch (const std::bad_alloc&) {
    throw std::runtime_error(file + ": out of memory while " + doing);
  }
}

void evaluate(const std::vector<std::string>& args) {
  std::vector<double> distances;
  std::string depth_dir, poses_dir, other, rig_dir;
  bool breakdown = false;
  const cli::CommandLine line =
      cli::parse_command_line(args, {{"--within", "", [&](const cli::OptionValue& v) { distances = millimetres(v); }},
                                     {"--depth-maps", "", cli::store_text(depth_dir, "a folder")},
                                     {"--poses", "", cli::store_text(poses_dir, "a folder")},
                                     {"--against", "", cli::store_text(other, "a model file")},
                                     {"--rig", "", cli::store_text(rig_dir, "a folder")},
                                     {"--breakdown", "", [&](const cli::OptionValue&) { breakdown = true; }, true}});
  const bool reads_model = depth_dir.empty() && poses_dir.empty();
  const bool measures_model = !distances.empty() || breakdown;
  const int modes = !depth_dir.empty() + !poses_dir.empty() + !other.empty() + measures_model;
  if (line.words.size() != (reads_model ? 2u : 1u) || modes > 1 || (!rig_dir.empty() && (!reads_model || !other.empty())))
    throw cli::UsageError(
        "expected SCENE_DIR MODEL.ply [--within MM[,MM...]] [--breakdown] [--rig DIR], SCENE_DIR MODEL.ply --against "
        "OTHER.ply, SCENE_DIR --depth-maps DIR or SCENE_DIR --poses DIR");
  if (!poses_dir.empty()) {
    std::cout << scene::format_pose_truth(within_memory(poses_dir, "comparing the poses with the true ones", [&] {
      return scene::compare_poses_with_truth(line.words[0], poses_dir);
    }));
    return;
  }
  if (!depth_dir.empty()) {
    std::cout << scene::format_depth_truth(within_memory(depth_dir, "comparing the depth maps with the true surfaces", [&] {
      return scene::compare_with_truth(line.words[0], depth_dir);
    }));
    return;
  }
  const std::string& model_file = line.words[1];
  if (!other.empty()) {
    const size_t points = scene::open_model_ply(model_file).count + scene::open_model_ply(other).count;
    const scene::Agreement agreement = within_memory(model_file, "comparing it with " + other + " (both in memory, about " + mebibytes(points * kAgreementBytesPerPoint) + ")", [&] {
      return scene::measure_agreement(line.words[0], scene::read_model_ply(model_file), scene::read_model_ply(other));
    });
    std::cout << scene::format_agreement(agreement);
    return;
  }
  std::optional<scene::RigMotion> rig;
  const scene::ModelBlocks blocks = with_progress(scene::model_blocks(model_file, [&rig](std::vector<scene::ModelPoint>& block) {
    if (rig) scene::move_model(block, *rig);
  }));
  if (!rig_dir.empty()) {
    rig = scene::rig_motion_onto_truth(line.words[0], rig_dir);
    char line_text[160];
    std::snprintf(line_text, sizeof line_text,
                  "rig: the model moved by the best rigid motion of its cameras onto the true ones: %.4f degrees, %.2f mm\n",
                  rig->size.degrees, 1000 * rig->size.centre);
    std::cout << line_text;
  }
  const std::string need = mebibytes(scene::evaluation_bytes(line.words[0], distances.size()));
  const scene::Evaluation e = within_memory(model_file, "measuring it block by block (about " + need + ")", [&] {
    return scene::evaluate_model(line.words[0], blocks, distances);
  });
  std::cout << scene::format_evaluation(e);
  if (!breakdown) return;
  if (distances.empty()) distances = {e.footprint, 2 * e.footprint};
  const std::string text = within_memory(model_file, "breaking completeness down (the whole model in memory, about " +
                                                         mebibytes(blocks.points * kBreakdownBytesPerPoint) + ")", [&] {
    std::vector<scene::ModelPoint> model;
    blocks.for_each_block([&](const std::vector<scene::ModelPoint>& block) { model.insert(model.end(), block.begin(), block.end()); });
    return scene::format_breakdown(scene::break_down_scene(line.words[0], model, distances));
  });
  std::cout << text;
}

}  // namespace

int main(int argc, char** argv) { return cli::run_tool("quillara-evaluate", kUsage, argc, argv, evaluate); }
