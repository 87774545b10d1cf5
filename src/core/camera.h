#pragma once

#include <string>
#include <vector>

#include "device/vector_types.h"
#include "image/CMatrix.h"

// One input view: intrinsics, pose, centre, colour image and sizes. Matrices are 3x3 stored by
// columns, so the element of row r and column c is K[3 * c + r]: K[0] = fx, K[4] = fy,
// K[6] = cx, K[7] = cy. After loading, cx and cy hold the mirrored principal point
// (image_coordinates false); the image plane is mirrored in both axes throughout.
struct Camera {
  float K[9] = {};
  float R[9] = {};  // world to camera
  float t[3] = {};  // world to camera
  float center[3] = {};  // -R^T t
  bool image_coordinates = false;
  int index = 0;
  int width = 0;
  int height = 0;
  std::string image_filename;
  CMatrix<uchar4> image;
  std::vector<Camera*> neighbours;  // not owned
  float min_depth = 0.0f;
  float max_depth = 0.0f;

  // Fills image from image_filename unless it is already there, then brings K, width and height
  // in line with the image's size.
  void loadImage();
};

// Reads a PNG or PPM colour image as uchar4 pixels, alpha 255 where the file has none.
CMatrix<uchar4> loadImage(const std::string& filename);

// Searches along the optical axis for the depth up to which at least 3 neighbours see the point
// at a usable angle; fills min_depth and max_depth and prints them. Does nothing without
// neighbours.
void estimate_keyframe_depth_range(Camera& camera);
