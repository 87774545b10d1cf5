// quillara-evaluate: measures a model, or depth maps, made from a generated scene against the true
// surfaces.
#include <cmath>
#include <exception>
#include <iostream>
#include <sstream>
#include <string>
#include <vector>

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
  const bool with_distances = argc == 5 && std::string(argv[3]) == "--within";
  const bool against = argc == 5 && std::string(argv[3]) == "--against";
  if (!(argc == 3 || depth_maps || with_distances || against) ||
      (with_distances && !parse_millimetres(argv[4], distances))) {
    std::cerr << "usage: quillara-evaluate SCENE_DIR MODEL.ply [--within MM[,MM...]]\n"
                 "       quillara-evaluate SCENE_DIR --depth-maps DIR   (DIR holding view_NN.txt)\n"
                 "       quillara-evaluate SCENE_DIR MODEL.ply --against OTHER.ply\n"
                 "  --within  also measure completeness and accuracy within these distances, in millimetres\n"
                 "  --against the share of each model's points that have a point of the other within 0.1 and 1\n"
                 "            pixel footprint (tiled against untiled runs, say)\n";
    return 1;
  }
  try {
    if (against)
      std::cout << scene::format_agreement(
          scene::measure_agreement(argv[1], scene::read_model_ply(argv[2]), scene::read_model_ply(argv[4])));
    else if (depth_maps)
      std::cout << scene::format_depth_truth(scene::compare_with_truth(argv[1], argv[3]));
    else
      std::cout << scene::format_evaluation(scene::evaluate_model(argv[1], scene::read_model_ply(argv[2]), distances));
  } catch (const std::exception& e) {
    std::cerr << "quillara-evaluate: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
