#include "src/io/model_output.h"

#include "device/vector_math.h"
#include "ply/ply.h"

void writeParticlesToPLY(const std::vector<Particle>& particles, const std::vector<float>& offsets,
                         const std::vector<float3>& normals, std::string path) {
  p_ply ply = ply_create(path.c_str(), PLY_DEFAULT, nullptr);
  ply_add_element(ply, "vertex", static_cast<long>(particles.size()));
  ply_add_scalar_property(ply, "x", PLY_FLOAT);
  ply_add_scalar_property(ply, "y", PLY_FLOAT);
  ply_add_scalar_property(ply, "z", PLY_FLOAT);
  ply_add_scalar_property(ply, "nx", PLY_FLOAT);
  ply_add_scalar_property(ply, "ny", PLY_FLOAT);
  ply_add_scalar_property(ply, "nz", PLY_FLOAT);
  ply_add_scalar_property(ply, "diffuse_red", PLY_UCHAR);
  ply_add_scalar_property(ply, "diffuse_green", PLY_UCHAR);
  ply_add_scalar_property(ply, "diffuse_blue", PLY_UCHAR);
  ply_add_scalar_property(ply, "psz", PLY_FLOAT);
  ply_write_header(ply);
  for (std::size_t i = 0; i < particles.size(); ++i) {
    const Particle& p = particles[i];
    const float3 position = p.pos + offsets[i] * p.dir;
    ply_write(ply, position.x);
    ply_write(ply, position.y);
    ply_write(ply, position.z);
    ply_write(ply, normals[i].x);
    ply_write(ply, normals[i].y);
    ply_write(ply, normals[i].z);
    ply_write(ply, p.color.x);
    ply_write(ply, p.color.y);
    ply_write(ply, p.color.z);
    ply_write(ply, p.radius);
  }
  ply_close(ply);
}
