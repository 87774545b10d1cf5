#pragma once

#include <cstdint>
#include <vector>

#include "tools/scene/render_view.h"
#include "tools/scene/scene_camera.h"
#include "tools/scene/vec3.h"

namespace scene {

// Replaces the measured depth of about `share` of a view's surface pixels by wrong depths, as
// depth sensors and stereo matchers produce them: square patches (8 pixels wide at 640 pixels,
// scaled with the image width, at least 2) at places fixed by the seed and the view, each at one
// depth 10 to 30 % in front of or behind the true depth at its centre. Returns the world points of
// the planted pixels, as quillara would back-project them. A share of 0 changes nothing.
std::vector<Vec3> plant_outliers(RenderedView& view, const SceneCamera& camera, double share, uint64_t seed,
                                 int view_index);

}  // namespace scene
