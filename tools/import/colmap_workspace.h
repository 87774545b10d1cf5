#pragma once

#include <string>

#include "tools/import/source_scene.h"

namespace importer {

// Which depth maps of the workspace to take: geometric where present, else photometric
// (automatic), or one kind only.
enum class DepthChoice { automatic, geometric, photometric };

// A dense workspace: sparse/ (cameras and images, binary preferred over text when both are
// there), images/NAME and stereo/depth_maps/NAME.{geometric,photometric}.bin. Registered images
// with a depth map become views, sorted by name; images without one are left out and noted.
SourceScene read_colmap_workspace(const std::string& workspace, DepthChoice choice);

}  // namespace importer
