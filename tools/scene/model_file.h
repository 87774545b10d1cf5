#pragma once

#include <cstddef>
#include <fstream>
#include <string>
#include <vector>

#include "tools/scene/vec3.h"

namespace scene {

struct ModelPoint {
  Vec3 point;
  Vec3 normal;
};

// A binary little-endian PLY model opened for reading its vertices a block at a time, so that a
// model larger than memory can be measured.
struct ModelReader {
  std::string path;
  std::ifstream in;
  size_t count = 0;   // vertices in the file
  size_t next = 0;    // index of the next vertex to read
  size_t record = 0;  // bytes per vertex
  size_t position[3] = {0, 0, 0};  // byte offsets of x, y, z within a vertex
  size_t normal[3] = {0, 0, 0};    // and of nx, ny, nz when has_normals
  bool has_normals = false;
};

// Reads the header (x y z, and nx ny nz when present; any other scalar properties are skipped) and
// checks that the file holds every vertex it announces. Throws std::runtime_error on anything else.
ModelReader open_model_ply(const std::string& path);

// Replaces `block` by the next vertices, at most `limit` of them; false when none were left.
// Throws std::runtime_error naming the vertex whose position is not finite.
bool read_model_block(ModelReader& reader, std::vector<ModelPoint>& block, size_t limit);

// Reads every vertex at once.
std::vector<ModelPoint> read_model_ply(const std::string& path);

}  // namespace scene
