#include "tools/tiles/plan_file.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdio>
#include <limits>
#include <sstream>

#include "formats/view_file.h"
#include "tools/tiles/json.h"

namespace tiles {
namespace {

// Nine significant digits bring a float back exactly; infinite bounds are written as null.
std::string number(float v) {
  if (std::isinf(v)) return "null";
  char text[32];
  std::snprintf(text, sizeof text, "%.9g", static_cast<double>(v));
  return text;
}

float bound(const Json& v, float infinite) { return v.is_null() ? infinite : static_cast<float>(v.number()); }

std::string box_json(const SpaceBox& b) {
  std::string out = "{\"lo\": [";
  for (int a = 0; a < 3; ++a) out += (a ? ", " : "") + number(b.lo[a]);
  out += "], \"hi\": [";
  for (int a = 0; a < 3; ++a) out += (a ? ", " : "") + number(b.hi[a]);
  return out + "]}";
}

SpaceBox parse_box(const Json& j) {
  SpaceBox b;
  const float inf = std::numeric_limits<float>::infinity();
  for (int a = 0; a < 3; ++a) {
    b.lo[a] = bound(j.at("lo").items.at(a), -inf);
    b.hi[a] = bound(j.at("hi").items.at(a), inf);
  }
  return b;
}

bool stamp(const std::string& path, FileStamp& s) {
  s.path = path;
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return false;
  s.bytes = static_cast<std::uint64_t>(st.st_size);
  s.modified_ns = static_cast<long long>(st.st_mtim.tv_sec) * 1000000000LL + st.st_mtim.tv_nsec;
  return true;
}

}  // namespace

std::string format_plan(const PlanFile& p) {
  std::ostringstream o;
  o << "{\n  \"format\": \"quillara tile plan 1\",\n  \"arguments\": [";
  for (std::size_t i = 0; i < p.arguments.size(); ++i) o << (i ? ", " : "") << json_string(p.arguments[i]);
  o << "],\n  \"working_directory\": " << json_string(p.working_directory) << ",\n  \"max_memory\": " << p.budget << ",\n  \"tiles_asked\": " << p.min_tiles
    << ",\n  \"depth_range_max\": " << number(p.depth_range_max) << ",\n  \"halo\": " << number(p.halo) << ",\n  \"stride\": " << p.stride
    << ",\n  \"views\": [";
  for (std::size_t v = 0; v < p.views.size(); ++v) {
    o << (v ? "," : "") << "\n    {\"file\": " << json_string(p.views[v].file) << ", \"stamps\": [";
    for (std::size_t k = 0; k < p.views[v].stamps.size(); ++k) {
      const FileStamp& s = p.views[v].stamps[k];
      o << (k ? ", " : "") << "{\"path\": " << json_string(s.path) << ", \"bytes\": " << s.bytes
        << ", \"modified_ns\": " << s.modified_ns << "}";
    }
    o << "]}";
  }
  o << "\n  ],\n  \"tiles\": [";
  for (std::size_t t = 0; t < p.tiles.size(); ++t) {
    const Tile& tile = p.tiles[t];
    o << (t ? "," : "") << "\n    {\"index\": " << t << ", \"core\": " << box_json(tile.core)
      << ", \"halo\": " << box_json(tile.halo) << ", \"particles\": " << tile.particles
      << ", \"memory\": " << p.tile_bytes[t] << ", \"views\": [";
    for (std::size_t k = 0; k < tile.views.size(); ++k) o << (k ? ", " : "") << tile.views[k];
    o << "]}";
  }
  o << "\n  ]\n}\n";
  return o.str();
}

PlanFile parse_plan(const std::string& text) {
  const Json j = parse_json(text);
  if (j.at("format").string() != "quillara tile plan 1") throw std::runtime_error("not a plan of this version");
  PlanFile p;
  for (const Json& a : j.at("arguments").items) p.arguments.push_back(a.string());
  p.working_directory = j.at("working_directory").string();
  p.budget = static_cast<std::uint64_t>(j.at("max_memory").whole());
  p.min_tiles = static_cast<int>(j.at("tiles_asked").whole());
  p.depth_range_max = static_cast<float>(j.at("depth_range_max").number());
  p.halo = static_cast<float>(j.at("halo").number());
  p.stride = static_cast<int>(j.at("stride").whole());
  for (const Json& v : j.at("views").items) {
    PlannedView view{v.at("file").string(), {}};
    for (const Json& s : v.at("stamps").items)
      view.stamps.push_back({s.at("path").string(), static_cast<std::uint64_t>(s.at("bytes").whole()),
                             s.at("modified_ns").whole()});
    p.views.push_back(view);
  }
  for (const Json& t : j.at("tiles").items) {
    Tile tile;
    tile.core = parse_box(t.at("core"));
    tile.halo = parse_box(t.at("halo"));
    tile.particles = static_cast<std::uint64_t>(t.at("particles").whole());
    for (const Json& v : t.at("views").items) {
      const long long view = v.whole();
      if (view < 0 || view >= static_cast<long long>(p.views.size())) throw std::runtime_error("a tile names no view");
      tile.views.push_back(static_cast<int>(view));
    }
    p.tiles.push_back(tile);
    p.tile_bytes.push_back(static_cast<std::uint64_t>(t.at("memory").whole()));
  }
  return p;
}

PlannedView stamp_view(const std::string& view_file) {
  const ViewFile view = read_view_file(view_file);
  PlannedView v{view_file, {}};
  for (const std::string& path : {view_file, view.image_path, view.depth_path}) {
    FileStamp s;
    stamp(path, s);
    v.stamps.push_back(s);
  }
  return v;
}

std::string view_change(const PlannedView& planned) {
  for (const FileStamp& s : planned.stamps) {
    FileStamp now;
    if (!stamp(s.path, now)) return "\"" + s.path + "\" has vanished";
    if (now.bytes != s.bytes || now.modified_ns != s.modified_ns) return "\"" + s.path + "\" has changed";
  }
  return {};
}

}  // namespace tiles
