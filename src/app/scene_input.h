#pragma once

#include <string>
#include <vector>

#include "formats/view_file.h"
#include "image/CMatrix.h"
#include "src/core/camera.h"

// Reads every view file in order into the three parallel containers (resized to the number of
// files): cameras, pointers to them, and the input depth maps in the scene's length unit. Then
// derives the depth statistics into depth_range_min and depth_range_max. Prints progress and statistics on standard
// output. Throws ViewFileError at the first view that cannot be used. depth_paths, when given,
// receives the depth map path of each view as its file names it.
void read_views(const std::vector<std::string>& files, std::vector<Camera>& cameras,
                std::vector<Camera*>& camera_ptrs, std::vector<CMatrix<float>>& depthmaps,
                std::vector<std::string>* depth_paths = nullptr);

// Reads one view file into camera (index and the pose, intrinsics, sizes and paths) and its
// depth PNG into depthmap, then loads the colour image. Throws ViewFileError when the file is
// malformed (see parse_view_file), an image cannot be read, or the sizes disagree; the image
// readers' texts are kept as the cause. depth_path, when given, receives the depth map's path.
void read_view(const std::string& file, int index, Camera& camera, CMatrix<float>& depthmap,
               std::string* depth_path = nullptr);

// Radius in pixels of a disc with the area of one of `count` superpixels of a width x height
// image.
float superpixel_radius(int width, int height, int count);

// World size of k pixels at the average depth of a camera with focal length fx.
float pixel_radius(float k, float avg_depth, float fx);
