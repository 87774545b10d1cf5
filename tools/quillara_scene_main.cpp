// quillara-scene: writes a synthetic scene (views, colour and depth PNGs, ground truth).
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "tools/scene/scene_arguments.h"

int main(int argc, char** argv) {
  const scene::ParsedArguments parsed = scene::parse_scene_arguments(std::vector<std::string>(argv + 1, argv + argc));
  if (parsed.action == scene::ParsedArguments::Action::help) {
    std::cout << scene::scene_usage();
    return 0;
  }
  if (parsed.action == scene::ParsedArguments::Action::error) {
    std::cerr << "quillara-scene: " << parsed.error << "\nRun 'quillara-scene --help' for usage.\n";
    return 1;
  }
  try {
    const scene::SceneSummary summary = scene::write_scene(scene::make_scene(parsed.options.kind), parsed.options);
    std::cout << scene::format_summary(summary, parsed.options);
  } catch (const std::exception& e) {
    std::cerr << "quillara-scene: " << e.what() << "\n";
    return 1;
  }
  return 0;
}
