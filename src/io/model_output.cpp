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

// Writes the model to an open file; false at the first value the writer refuses.
bool write_model(p_ply ply, const std::vector<Particle>& particles, const std::vector<float>& offsets,
                 const std::vector<float3>& normals) {
  bool ok = ply_add_element(ply, "vertex", static_cast<long>(particles.size()));
  for (const char* name : {"x", "y", "z", "nx", "ny", "nz"}) ok = ok && ply_add_scalar_property(ply, name, PLY_FLOAT);
  for (const char* name : {"diffuse_red", "diffuse_green", "diffuse_blue"})
    ok = ok && ply_add_scalar_property(ply, name, PLY_UCHAR);
  ok = ok && ply_add_scalar_property(ply, "psz", PLY_FLOAT) && ply_write_header(ply);
  for (std::size_t i = 0; ok && i < particles.size(); ++i) {
    const Particle& p = particles[i];
    const float3 position = p.pos + offsets[i] * p.dir;
    const double values[10] = {position.x, position.y, position.z, normals[i].x, normals[i].y,
                               normals[i].z, static_cast<double>(p.color.x), static_cast<double>(p.color.y),
                               static_cast<double>(p.color.z), p.radius};
    for (double v : values) ok = ok && ply_write(ply, v);
  }
  return ok;
}

}  // namespace

void writeParticlesToPLY(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, std::string path) {
  const auto fail = [&](const std::string& reason) {
    throw ModelWriteError("cannot write model file \"" + path + "\": " + reason);
  };
  try {
    TemporaryFile file(path);
    ply_failure.clear();
    errno = 0;
    p_ply ply = ply_create(file.path.c_str(), PLY_DEFAULT, note_ply_failure);
    const bool written = ply != nullptr && write_model(ply, particles, offsets, normals);
    const bool closed = ply_close(ply);
    if (!written || !closed) fail(ply_failure.empty() ? "the PLY writer failed" : ply_failure);
    file.commit(path);
  } catch (const ModelWriteError&) {
    throw;
  } catch (const std::runtime_error& e) {
    fail(e.what());
  }
}
