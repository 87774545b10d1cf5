// quillara-scene: writes a synthetic scene (views, colour and depth PNGs, ground truth).
#include <iostream>

#include "tools/cli/tool_main.h"
#include "tools/scene/scene_arguments.h"

int main(int argc, char** argv) {
  return cli::run_tool("quillara-scene", scene::scene_usage(), argc, argv, [](const auto& args) {
    const scene::SceneOptions options = scene::parse_scene_arguments(args);
    std::cout << scene::format_summary(scene::write_scene(scene::make_scene(options.kind), options), options);
  });
}
