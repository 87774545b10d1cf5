#pragma once

#include <functional>

#include "image/CMatrix.h"
#include "src/core/camera.h"

// Reads view `index` of the run into a camera (pose, intrinsics, colour image) and its input depth
// map; throws what the reader throws for a view that cannot be used. Tiled runs read a view only
// when a stage needs it, and drop it afterwards.
using ViewSource = std::function<void(int index, Camera& camera, CMatrix<float>& depthmap)>;
