#pragma once

#include <string>
#include <vector>

#include "tools/scene/scene_files.h"

namespace scene {

struct ParsedArguments {
  enum class Action { run, help, error };
  Action action = Action::run;
  SceneOptions options;
  std::string error;  // one line without the program name, set for Action::error
};

// Parses the arguments behind the program name. Options take their value as the next argument
// or after '=' ("--views 4", "--views=4").
ParsedArguments parse_scene_arguments(const std::vector<std::string>& args);

// The text printed by --help.
std::string scene_usage();

}  // namespace scene
