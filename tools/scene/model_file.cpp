#include "tools/scene/model_file.h"

#include <cmath>
#include <cstdint>
#include <cstring>
#include <fstream>
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

}  // namespace

std::vector<ModelPoint> read_model_ply(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot open " + path);
  std::string line;
  std::getline(in, line);
  if (line != "ply") throw std::runtime_error(path + " is not a PLY file");

  size_t count = 0, record = 0;
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
      if (in_vertex && !parse_number(number, count))
        throw std::runtime_error(path + ": the vertex count '" + number + "' is not a whole number from 0");
      if (!in_vertex && !vertex_seen) throw std::runtime_error(path + ": the vertex element must come first");
      vertex_seen = vertex_seen || in_vertex;
    } else if (word == "property" && in_vertex) {
      std::string type, name;
      words >> type >> name;
      if (type == "float" || type == "float32") offset[name] = record;
      record += type_size(type);
    }
  }
  if (!binary_le) throw std::runtime_error(path + " is not binary little endian");
  for (const char* name : {"x", "y", "z"})
    if (!offset.count(name)) throw std::runtime_error(path + " has no float property " + name);
  const bool has_normals = offset.count("nx") && offset.count("ny") && offset.count("nz");

  // The header's count must match the file before anything that large is allocated.
  const std::streamoff header_end = in.tellg();
  in.seekg(0, std::ios::end);
  const std::streamoff body = in.tellg() - header_end;
  in.seekg(header_end);
  if (record == 0 || count > static_cast<size_t>(body) / record)
    throw std::runtime_error(path + " is truncated: " + std::to_string(count) + " vertices of " +
                             std::to_string(record) + " bytes do not fit in " + std::to_string(body) + " bytes");
  std::vector<char> bytes(count * record);
  in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (static_cast<size_t>(in.gcount()) != bytes.size()) throw std::runtime_error(path + " is truncated");
  auto value = [&](size_t k, const char* name) {
    float f;
    std::memcpy(&f, bytes.data() + k * record + offset.at(name), sizeof f);
    return static_cast<double>(f);
  };
  std::vector<ModelPoint> points(count);
  for (size_t k = 0; k < count; ++k) {
    points[k].point = {value(k, "x"), value(k, "y"), value(k, "z")};
    if (!std::isfinite(points[k].point.x) || !std::isfinite(points[k].point.y) || !std::isfinite(points[k].point.z))
      throw std::runtime_error(path + ": vertex " + std::to_string(k) + " has a position that is not finite");
    if (has_normals) points[k].normal = {value(k, "nx"), value(k, "ny"), value(k, "nz")};
  }
  return points;
}

}  // namespace scene
