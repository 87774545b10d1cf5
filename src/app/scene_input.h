#pragma once

#include <string>
#include <vector>

#include "formats/view_file.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"
#include "src/core/radii.h"
#include "src/io/read_view.h"

// Reads every view file in order into the three parallel containers (resized to the number of
// files): cameras, pointers to them, and the input depth maps in the scene's length unit. Then
// derives the depth statistics into depth_range_min and depth_range_max. Prints progress and statistics on standard
// output. Throws ViewFileError at the first view that cannot be used. depth_paths, when given,
// receives the depth map path of each view as its file names it.
void read_views(const std::vector<std::string>& files, std::vector<Camera>& cameras,
                std::vector<Camera*>& camera_ptrs, std::vector<CMatrix<float>>& depthmaps,
                std::vector<std::string>* depth_paths = nullptr);
