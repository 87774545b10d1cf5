// quillara-evaluate: measures a model made from a generated scene against the true surfaces.
#include <exception>
#include <iostream>

#include "tools/scene/evaluation.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: quillara-evaluate SCENE_DIR MODEL.ply\n";
    return 1;
  }
  try {
    std::cout << scene::format_evaluation(scene::evaluate_model(argv[1], scene::read_model_ply(argv[2])));
  } catch (const std::exception& e) {
    std::cerr << "quillara-evaluate: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
