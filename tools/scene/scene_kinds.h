#pragma once

#include <string>

#include "tools/scene/scene.h"

namespace scene {

// Which analytic scene the generator renders. The standard scene is the sample scene; the other
// two make thin structures, which fusion loses first, a larger part of the surface.
enum class SceneKind {
  standard,  // ground, sphere, box, cylinder, a 4 mm sheet and three rods of 1.5 cm
  mixed,     // the standard scene and six more rods of 8 to 12 mm
  thin,      // mostly thin: a fence, a wire cube, a mast with guy wires, two sheets, a small ball
};

// "standard", "mixed", "thin" to the kind and back; false for any other name.
bool parse_scene_kind(const std::string& name, SceneKind& kind);
std::string scene_kind_name(SceneKind kind);

Scene make_scene(SceneKind kind);

// A generated scene directory names its kind in scene_kind.txt, written for every kind but the
// standard one (so that the standard scene's files stay as they always were). Reading a directory
// without that file gives the standard kind; an unknown name throws std::runtime_error.
inline const char* const kSceneKindFile = "scene_kind.txt";
void write_scene_kind(const std::string& directory, SceneKind kind);
SceneKind read_scene_kind(const std::string& directory);

}  // namespace scene
