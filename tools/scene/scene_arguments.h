#pragma once

#include <string>
#include <vector>

#include "tools/scene/scene_files.h"

namespace scene {

// Reads the arguments behind the program name. Options take their value as the next argument or
// after '=' ("--views 4", "--views=4"). Throws cli::UsageError.
SceneOptions parse_scene_arguments(const std::vector<std::string>& args);

// The text printed by --help.
std::string scene_usage();

}  // namespace scene
