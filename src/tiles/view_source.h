#pragma once

#include <functional>
#include <string>
#include <vector>

#include "image/CMatrix.h"
#include "src/core/camera.h"

// Reads view `index` of the run into a camera (pose, intrinsics, colour image) and its input depth
// map; throws what the reader throws for a view that cannot be used. Tiled runs read a view only
// when a stage needs it, and drop it afterwards.
using ViewSource = std::function<void(int index, Camera& camera, CMatrix<float>& depthmap)>;

// The views of these view files, read with the run's own reader and announced as the whole run
// announces them ("Reading file NAME"). The files are referred to, not copied: they must outlive
// the source.
ViewSource view_files_source(const std::vector<std::string>& files);
