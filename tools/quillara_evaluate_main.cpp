// quillara-evaluate: measures a model, or depth maps, made from a generated scene against the true
// surfaces.
#include <exception>
#include <iostream>
#include <string>

#include "tools/scene/depth_truth.h"
#include "tools/scene/evaluation.h"

int main(int argc, char** argv) {
  const bool depth_maps = argc == 4 && std::string(argv[2]) == "--depth-maps";
  if (argc != 3 && !depth_maps) {
    std::cerr << "usage: quillara-evaluate SCENE_DIR MODEL.ply\n"
                 "       quillara-evaluate SCENE_DIR --depth-maps DIR   (DIR holding view_NN.txt)\n";
    return 1;
  }
  try {
    if (depth_maps)
      std::cout << scene::format_depth_truth(scene::compare_with_truth(argv[1], argv[3]));
    else
      std::cout << scene::format_evaluation(scene::evaluate_model(argv[1], scene::read_model_ply(argv[2])));
  } catch (const std::exception& e) {
    std::cerr << "quillara-evaluate: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
