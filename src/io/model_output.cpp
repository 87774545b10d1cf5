#include "src/io/model_output.h"

#include <cerrno>
#include <cstring>

#include "device/vector_math.h"
#include "ply/ply.h"
#include "src/io/temporary_file.h"

namespace {

// The first failure the PLY writer reports, with the system's reason when there is one. The
// writer reports through a plain function; models are written by the main thread only.
std::string ply_failure;

void note_ply_failure(p_ply, const char* message) {
  if (!ply_failure.empty()) return;
  ply_failure = errno != 0 ? std::strerror(errno) : message;
}

// Declares the vertex element and writes the header; false when the writer refuses.
bool write_header(p_ply ply, std::size_t count, PlyColorNames names) {
  static const char* const diffuse[] = {"diffuse_red", "diffuse_green", "diffuse_blue"};
  static const char* const standard[] = {"red", "green", "blue"};
  bool ok = ply_add_element(ply, "vertex", static_cast<long>(count));
  for (const char* name : {"x", "y", "z", "nx", "ny", "nz"}) ok = ok && ply_add_scalar_property(ply, name, PLY_FLOAT);
  for (const char* name : names == PlyColorNames::standard ? standard : diffuse)
    ok = ok && ply_add_scalar_property(ply, name, PLY_UCHAR);
  return ok && ply_add_scalar_property(ply, "psz", PLY_FLOAT) && ply_write_header(ply);
}

}  // namespace

void writeParticlesToPLY(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, std::string path) {
  writeParticlesToPLY(particles, offsets, normals, path, PlyColorNames::diffuse);
}

void writeParticlesToPLY(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, const std::string& path, PlyColorNames names) {
  write_model_file(path, particles.size(), names, [&](p_ply ply) {
    bool ok = true;
    for (std::size_t i = 0; ok && i < particles.size(); ++i) {
      const Particle& p = particles[i];
      const float3 position = p.pos + offsets[i] * p.dir;
      const double values[10] = {position.x, position.y, position.z, normals[i].x, normals[i].y,
                                 normals[i].z, static_cast<double>(p.color.x), static_cast<double>(p.color.y),
                                 static_cast<double>(p.color.z), p.radius};
      for (double v : values) ok = ok && ply_write(ply, v);
    }
    return ok;
  });
}

void write_model_file(const std::string& path, std::size_t count, PlyColorNames names,
                      const std::function<bool(PlyFile*)>& write_vertices) {
  const auto fail = [&](const std::string& reason) {
    throw ModelWriteError("cannot write model file \"" + path + "\": " + reason);
  };
  try {
    TemporaryFile file(path);
    ply_failure.clear();
    errno = 0;
    p_ply ply = ply_create(file.path.c_str(), PLY_DEFAULT, note_ply_failure);
    const bool written = ply != nullptr && write_header(ply, count, names) && write_vertices(ply);
    const bool closed = ply_close(ply);
    if (!written || !closed) fail(ply_failure.empty() ? "the PLY writer failed" : ply_failure);
    file.commit(path);
  } catch (const ModelWriteError&) {
    throw;
  } catch (const std::runtime_error& e) {
    fail(e.what());
  }
}
