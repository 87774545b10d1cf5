#include "ply/ply.h"

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

namespace {

struct Property {
  std::string name;
  e_ply_type type;
};

struct Element {
  std::string name;
  long ninstances;
  std::vector<Property> properties;
};

const char* type_name(e_ply_type type) {
  switch (type) {
    case PLY_UCHAR: return "uchar";
    case PLY_FLOAT: return "float";
  }
  return nullptr;
}

bool valid_type(e_ply_type type) { return type_name(type) != nullptr; }

bool valid_name(const char* name) {
  if (name == nullptr || *name == '\0') return false;
  for (const char* c = name; *c != '\0'; ++c)
    if (*c == ' ' || *c == '\t' || *c == '\n' || *c == '\r') return false;
  return true;
}

std::uint8_t to_uchar(double value) {
  if (std::isnan(value)) return 0;
  const double t = std::trunc(value);
  if (t <= 0.0) return 0;
  if (t >= 255.0) return 255;
  return static_cast<std::uint8_t>(t);
}

}  // namespace

struct PlyFile {
  std::FILE* fp = nullptr;
  std::string name;
  p_ply_error_cb error_cb = nullptr;
  std::vector<Element> elements;
  bool header_written = false;
  // Position of the next value: element, instance, property.
  std::size_t element = 0;
  long instance = 0;
  std::size_t property = 0;

  int error(const std::string& message) {
    if (error_cb != nullptr) {
      error_cb(this, message.c_str());
    } else {
      std::fprintf(stderr, "ply: %s\n", message.c_str());
    }
    return 0;
  }

  // Skips elements without instances or properties so that `element` names the one written next.
  void settle() {
    while (element < elements.size() &&
           (instance >= elements[element].ninstances || elements[element].properties.empty())) {
      ++element;
      instance = 0;
      property = 0;
    }
  }

  // Binary in the machine's byte order: the value's bytes as they are in memory.
  template <typename V>
  bool put_binary(V v) {
    return std::fwrite(&v, 1, sizeof(V), fp) == sizeof(V);
  }

  bool put(e_ply_type type, double value) {
    switch (type) {
      case PLY_UCHAR: return put_binary(to_uchar(value));
      case PLY_FLOAT: return put_binary(static_cast<float>(value));
    }
    return false;
  }
};

p_ply ply_create(const char* name, e_ply_storage_mode storage_mode, p_ply_error_cb error_cb) {
  PlyFile probe;
  probe.error_cb = error_cb;
  if (name == nullptr) {
    probe.error("ply_create: no file name");
    return nullptr;
  }
  if (storage_mode != PLY_DEFAULT) {
    probe.error(std::string("ply_create: unknown storage mode for ") + name);
    return nullptr;
  }
  std::FILE* fp = std::fopen(name, "wb");
  if (fp == nullptr) {
    probe.error(std::string("ply_create: cannot open file ") + name);
    return nullptr;
  }
  PlyFile* ply = new PlyFile;
  ply->fp = fp;
  ply->name = name;
  ply->error_cb = error_cb;
  return ply;
}

int ply_add_element(p_ply ply, const char* name, long ninstances) {
  if (ply == nullptr) return 0;
  if (ply->header_written) return ply->error("ply_add_element: header already written");
  if (!valid_name(name)) return ply->error("ply_add_element: invalid element name");
  if (ninstances < 0) return ply->error("ply_add_element: negative instance count");
  ply->elements.push_back(Element{name, ninstances, {}});
  return 1;
}

int ply_add_scalar_property(p_ply ply, const char* name, e_ply_type type) {
  if (ply == nullptr) return 0;
  if (ply->header_written) return ply->error("ply_add_scalar_property: header already written");
  if (ply->elements.empty()) return ply->error("ply_add_scalar_property: no element declared");
  if (!valid_name(name)) return ply->error("ply_add_scalar_property: invalid property name");
  if (!valid_type(type)) return ply->error("ply_add_scalar_property: unknown type");
  ply->elements.back().properties.push_back(Property{name, type});
  return 1;
}

int ply_write_header(p_ply ply) {
  if (ply == nullptr) return 0;
  if (ply->header_written) return ply->error("ply_write_header: header already written");
  std::string header = "ply\nformat ";
  header += std::endian::native == std::endian::little ? "binary_little_endian" : "binary_big_endian";
  header += " 1.0\n";
  for (const Element& e : ply->elements) {
    header += "element " + e.name + " " + std::to_string(e.ninstances) + "\n";
    for (const Property& p : e.properties) header += std::string("property ") + type_name(p.type) + " " + p.name + "\n";
  }
  header += "end_header\n";
  ply->header_written = true;
  if (std::fwrite(header.data(), 1, header.size(), ply->fp) != header.size())
    return ply->error("ply_write_header: cannot write to " + ply->name);
  ply->settle();
  return 1;
}

int ply_write(p_ply ply, double value) {
  if (ply == nullptr) return 0;
  if (!ply->header_written) return ply->error("ply_write: header not written yet");
  ply->settle();
  if (ply->element >= ply->elements.size()) return ply->error("ply_write: more values than the header declares");
  const Element& e = ply->elements[ply->element];
  const e_ply_type type = e.properties[ply->property].type;
  if (!ply->put(type, value)) return ply->error("ply_write: cannot write to " + ply->name);
  if (++ply->property == e.properties.size()) {
    ply->property = 0;
    ++ply->instance;
  }
  return 1;
}

int ply_close(p_ply ply) {
  if (ply == nullptr) return 0;
  int ok = 1;
  if (!ply->header_written) {
    ok = ply->error("ply_close: header never written to " + ply->name);
  } else {
    ply->settle();
    if (ply->element < ply->elements.size()) ok = ply->error("ply_close: fewer values written than declared");
  }
  if (std::fclose(ply->fp) != 0) ok = ply->error("ply_close: cannot close " + ply->name);
  delete ply;
  return ok;
}
