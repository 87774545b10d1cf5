#pragma once

#include <cstddef>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "device/vector_types.h"
#include "src/core/particle.h"

// A model file could not be written. The text names the file and the system's reason.
class ModelWriteError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// The names of the three colour properties of a model file: "diffuse_red", "diffuse_green",
// "diffuse_blue" as the model format has them, or "red", "green", "blue", the only ones common
// point-cloud readers take for colours.
enum class PlyColorNames { diffuse, standard };

// Writes the particle model as a binary PLY file in the machine's byte order: one element
// "vertex" with x, y, z (current position pos + offset * dir), nx, ny, nz, diffuse_red,
// diffuse_green, diffuse_blue (uchar) and psz (the radius). The file is written under a
// temporary name and renamed over path when complete, so an existing file is replaced whole or
// not at all. Throws ModelWriteError when the file cannot be written.
void writeParticlesToPLY(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, std::string path);
// The same with the colour properties named as `names` says; types and order stay.
void writeParticlesToPLY(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, const std::string& path, PlyColorNames names);

// Writes a model file of `count` vertices whose values write_vertices passes to ply_write, ten per
// vertex in the order of the properties above; false from it, or fewer values than announced,
// fail the file. Same temporary name, renaming and errors as writeParticlesToPLY, so that a model
// streamed from parts is the very file the whole model would give.
struct PlyFile;
void write_model_file(const std::string& path, std::size_t count, PlyColorNames names,
                      const std::function<bool(PlyFile*)>& write_vertices);
