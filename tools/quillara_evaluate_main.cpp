// quillara-evaluate: measures a model, or depth maps, made from a generated scene against the true
// surfaces.
#include <cmath>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include "tools/scene/completeness_breakdown.h"
#include "tools/scene/depth_truth.h"
#include "tools/scene/evaluation.h"

namespace {

// "2,5" in millimetres to distances in length units; false for anything but positive numbers.
bool parse_millimetres(const std::string& text, std::vector<double>& distances) {
  std::istringstream in(text);
  std::string item;
  while (std::getline(in, item, ',')) {
    std::size_t used = 0;
    double mm = 0;
    try {
      mm = std::stod(item, &used);
    } catch (const std::exception&) {
      return false;
    }
    if (used != item.size() || !std::isfinite(mm) || mm <= 0) return false;
    distances.push_back(mm / 1000.0);
  }
  return !distances.empty() && text.back() != ',';
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<double> distances;
  const bool depth_maps = argc == 4 && std::string(argv[2]) == "--depth-maps";
  // Behind SCENE_DIR MODEL.ply: --within MM[,MM...] and --breakdown, in any order.
  bool breakdown = false, options_ok = argc >= 3 && !depth_maps;
  for (int i = 3; options_ok && i < argc; ++i) {
    const std::string option = argv[i];
    if (option == "--breakdown" && !breakdown)
      breakdown = true;
    else if (option == "--within" && distances.empty() && i + 1 < argc)
      options_ok = parse_millimetres(argv[++i], distances);
    else
      options_ok = false;
  }
  if (!(depth_maps || options_ok)) {
    std::cerr << "usage: quillara-evaluate SCENE_DIR MODEL.ply [--within MM[,MM...]] [--breakdown]\n"
                 "       quillara-evaluate SCENE_DIR --depth-maps DIR   (DIR holding view_NN.txt)\n"
                 "  --within     also measure completeness and accuracy within these distances, in millimetres\n"
                 "  --breakdown  completeness per kind of surface and by the number of views that see the\n"
                 "               surface, at those distances (default one and two pixel footprints), and F-scores\n";
    return 1;
  }
  try {
    if (depth_maps) {
      std::cout << scene::format_depth_truth(scene::compare_with_truth(argv[1], argv[3]));
      return 0;
    }
    const std::vector<scene::ModelPoint> model = scene::read_model_ply(argv[2]);
    const scene::Evaluation e = scene::evaluate_model(argv[1], model, distances);
    std::cout << scene::format_evaluation(e);
    if (breakdown) {
      if (distances.empty()) distances = {e.footprint, 2 * e.footprint};
      std::cout << scene::format_breakdown(scene::break_down_scene(argv[1], model, distances));
    }
  } catch (const std::exception& e) {
    std::cerr << "quillara-evaluate: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
