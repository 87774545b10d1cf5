#pragma once

#include <string>

#include "tools/scene/ray_cast.h"

namespace scene {

// How the generated images look. The geometry, the cameras and the depth maps are the same in
// every appearance; only the colour images differ.
enum class Appearance {
  standard,        // the sample scene's fine random texture, one exposure for all views
  photograph,      // closer to photographs: texture at several scales with weak patches, a dark
                   // nearly uniform background, and per view gain, offset, sensor noise and blur
  checks_stripes,  // 8 cm flat checks and smooth stripes without grain: repetitive and weak texture
};

// "standard", "photograph", "checks-stripes" to the appearance and back; false for other names.
bool parse_appearance(const std::string& name, Appearance& appearance);
std::string appearance_name(Appearance appearance);

// Linear RGB in [0, 1] of a surface hit, and of a ray that hits nothing, in an appearance (before
// the per-view imaging of photographs, see photograph_imaging.h).
Vec3 appearance_surface_colour(Appearance appearance, const Shape& shape, const Hit& hit);
Vec3 appearance_background_colour(Appearance appearance, Vec3 direction);

}  // namespace scene
