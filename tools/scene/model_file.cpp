#include "tools/scene/model_file.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <map>
#include <sstream>
#include <stdexcept>

#include "formats/number_text.h"

namespace scene {

namespace {

size_t type_size(const std::string& type) {
  static const std::map<std::string, size_t> sizes = {
      {"char", 1}, {"uchar", 1}, {"short", 2}, {"ushort", 2}, {"int", 4},    {"uint", 4},    {"float", 4},
      {"double", 8}, {"int8", 1}, {"uint8", 1}, {"int16", 2}, {"uint16", 2}, {"int32", 4}, {"uint32", 4},
      {"float32", 4}, {"float64", 8}};
  auto it = sizes.find(type);
  if (it == sizes.end()) throw std::runtime_error("unsupported PLY property type " + type);
  return it->second;
}

double float_at(const char* bytes) {
  float f;
  std::memcpy(&f, bytes, sizeof f);
  return static_cast<double>(f);
}

}  // namespace

ModelReader open_model_ply(const std::string& path) {
  ModelReader r;
  r.path = path;
  r.in.open(path, std::ios::binary);
  std::ifstream& in = r.in;
  if (!in) throw std::runtime_error("cannot open " + path);
  std::string line;
  std::getline(in, line);
  if (line != "ply") throw std::runtime_error(path + " is not a PLY file");

  bool in_vertex = false, vertex_seen = false, binary_le = false;
  std::map<std::string, size_t> offset;  // float properties of the vertex by name
  while (std::getline(in, line) && line != "end_header") {
    std::istringstream words(line);
    std::string word;
    words >> word;
    if (word == "format") {
      words >> word;
      binary_le = word == "binary_little_endian";
    } else if (word == "element") {
      std::string name;
      words >> name;
      in_vertex = name == "vertex";
      std::string number;
      words >> number;
      if (in_vertex && !parse_number(number, r.count))
        throw std::runtime_error(path + ": the vertex count '" + number + "' is not a whole number from 0");
      if (!in_vertex && !vertex_seen) throw std::runtime_error(path + ": the vertex element must come first");
      vertex_seen = vertex_seen || in_vertex;
    } else if (word == "property" && in_vertex) {
      std::string type, name;
      words >> type >> name;
      if (type == "float" || type == "float32") offset[name] = r.record;
      r.record += type_size(type);
    }
  }
  if (!binary_le) throw std::runtime_error(path + " is not binary little endian");
  const char* const axes[3][2] = {{"x", "nx"}, {"y", "ny"}, {"z", "nz"}};
  r.has_normals = true;
  for (int a = 0; a < 3; ++a) {
    if (!offset.count(axes[a][0])) throw std::runtime_error(path + " has no float property " + axes[a][0]);
    r.position[a] = offset[axes[a][0]];
    r.has_normals = r.has_normals && offset.count(axes[a][1]);
    if (r.has_normals) r.normal[a] = offset[axes[a][1]];
  }

  // The header's count must match the file before anything that large is allocated.
  const std::streamoff header_end = in.tellg();
  in.seekg(0, std::ios::end);
  const std::streamoff body = in.tellg() - header_end;
  in.seekg(header_end);
  if (r.record == 0 || r.count > static_cast<size_t>(body) / r.record)
    throw std::runtime_error(path + " is truncated: " + std::to_string(r.count) + " vertices of " +
                             std::to_string(r.record) + " bytes do not fit in " + std::to_string(body) + " bytes");
  return r;
}

bool read_model_block(ModelReader& r, std::vector<ModelPoint>& block, size_t limit) {
  const size_t n = std::min(limit, r.count - r.next);
  block.resize(n);
  if (n == 0) return false;
  std::vector<char> bytes(n * r.record);
  r.in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (static_cast<size_t>(r.in.gcount()) != bytes.size()) throw std::runtime_error(r.path + " is truncated");
  for (size_t k = 0; k < n; ++k) {
    const char* vertex = bytes.data() + k * r.record;
    ModelPoint& p = block[k];
    p.point = {float_at(vertex + r.position[0]), float_at(vertex + r.position[1]), float_at(vertex + r.position[2])};
    if (!std::isfinite(p.point.x) || !std::isfinite(p.point.y) || !std::isfinite(p.point.z))
      throw std::runtime_error(r.path + ": vertex " + std::to_string(r.next + k) + " has a position that is not finite");
    p.normal = r.has_normals
                   ? Vec3{float_at(vertex + r.normal[0]), float_at(vertex + r.normal[1]), float_at(vertex + r.normal[2])}
                   : Vec3{};
  }
  r.next += n;
  return true;
}

std::vector<ModelPoint> read_model_ply(const std::string& path) {
  ModelReader reader = open_model_ply(path);
  std::vector<ModelPoint> points;
  read_model_block(reader, points, reader.count);
  return points;
}

}  // namespace scene
