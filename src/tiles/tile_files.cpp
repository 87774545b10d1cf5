#include "src/tiles/tile_files.h"

#include <cerrno>
#include <cstring>
#include <fstream>

#include "device/vector_math.h"
#include "ply/ply.h"
#include "src/io/temporary_file.h"

namespace {

constexpr char kTileMagic[8] = {'Q', 'L', 'T', 'I', 'L', 'E', '0', '1'};
constexpr char kScaffoldMagic[8] = {'Q', 'L', 'S', 'C', 'A', 'F', '0', '1'};
// x y z nx ny nz (float), red green blue (uchar), psz (float): a model file's vertex.
constexpr std::size_t kVertexBytes = 6 * 4 + 3 + 4;
constexpr std::size_t kHeaderBytes = 16;

template <typename T>
void put(std::string& out, const T& v) {
  out.append(reinterpret_cast<const char*>(&v), sizeof v);
}

template <typename T>
void put_all(std::string& out, const std::vector<T>& v) {
  put(out, static_cast<std::uint64_t>(v.size()));
  out.append(reinterpret_cast<const char*>(v.data()), v.size() * sizeof(T));
}

// Writes the bytes under a temporary name and renames them over path.
void write_atomically(const std::string& path, const std::string& bytes) {
  try {
    TemporaryFile file(path);
    std::ofstream out(file.path, std::ios::binary | std::ios::trunc);
    out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    out.flush();
    if (!out) throw std::runtime_error(std::strerror(errno));
    out.close();
    file.commit(path);
  } catch (const std::runtime_error& e) {
    throw TileFileError("cannot write \"" + path + "\": " + e.what());
  }
}

std::ifstream open_checked(const std::string& path, const char (&magic)[8], const char* kind) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw TileFileError("\"" + path + "\" is missing: " + std::strerror(errno));
  char head[8] = {};
  in.read(head, sizeof head);
  if (!in || std::memcmp(head, magic, sizeof head) != 0) throw TileFileError("\"" + path + "\" is not " + kind);
  return in;
}

template <typename T>
void get(std::ifstream& in, T& v, const std::string& path) {
  in.read(reinterpret_cast<char*>(&v), sizeof v);
  if (!in) throw TileFileError("\"" + path + "\" is incomplete");
}

template <typename T>
void get_all(std::ifstream& in, std::vector<T>& v, const std::string& path, std::uint64_t limit) {
  std::uint64_t n = 0;
  get(in, n, path);
  if (n > limit) throw TileFileError("\"" + path + "\" is damaged");
  v.resize(n);
  in.read(reinterpret_cast<char*>(v.data()), static_cast<std::streamsize>(n * sizeof(T)));
  if (!in) throw TileFileError("\"" + path + "\" is incomplete");
}

std::uint64_t file_size(std::ifstream& in) {
  const auto here = in.tellg();
  in.seekg(0, std::ios::end);
  const auto size = in.tellg();
  in.seekg(here);
  return static_cast<std::uint64_t>(size);
}

}  // namespace

void write_tile_result(const std::string& path, const TileModel& m) {
  std::string bytes(kTileMagic, sizeof kTileMagic);
  put(bytes, static_cast<std::uint64_t>(m.particles.size()));
  bytes.reserve(kHeaderBytes + m.particles.size() * kVertexBytes);
  for (std::size_t i = 0; i < m.particles.size(); ++i) {
    const Particle& p = m.particles[i];
    const float3 x = p.pos + m.offsets[i] * p.dir;
    for (float v : {x.x, x.y, x.z, m.normals[i].x, m.normals[i].y, m.normals[i].z}) put(bytes, v);
    for (unsigned char c : {p.color.x, p.color.y, p.color.z}) put(bytes, c);
    put(bytes, p.radius);
  }
  write_atomically(path, bytes);
}

std::uint64_t tile_result_points(const std::string& path) {
  std::ifstream in = open_checked(path, kTileMagic, "a tile result");
  std::uint64_t count = 0;
  get(in, count, path);
  if (file_size(in) != kHeaderBytes + count * kVertexBytes) throw TileFileError("\"" + path + "\" is incomplete");
  return count;
}

void merge_tile_results(const std::vector<std::string>& results, const std::string& model_path, PlyColorNames names) {
  std::uint64_t total = 0;
  for (const std::string& r : results) total += tile_result_points(r);
  std::string failed;
  try {
    write_model_file(model_path, total, names, [&](PlyFile* ply) {
      std::vector<char> piece(kVertexBytes * 65536);
      for (const std::string& r : results) {
        std::ifstream in(r, std::ios::binary);
        in.seekg(static_cast<std::streamoff>(kHeaderBytes));
        for (std::uint64_t left = tile_result_points(r); left > 0;) {
          const std::uint64_t n = std::min<std::uint64_t>(left, 65536);
          in.read(piece.data(), static_cast<std::streamsize>(n * kVertexBytes));
          if (!in) {
            failed = "\"" + r + "\" cannot be read";
            return false;
          }
          for (std::uint64_t k = 0; k < n; ++k) {
            const char* v = piece.data() + k * kVertexBytes;
            float f[7];
            std::memcpy(f, v, 24);
            std::memcpy(f + 6, v + 27, 4);
            for (int a = 0; a < 6; ++a)
              if (!ply_write(ply, f[a])) return false;
            for (int c = 0; c < 3; ++c)
              if (!ply_write(ply, static_cast<double>(static_cast<unsigned char>(v[24 + c])))) return false;
            if (!ply_write(ply, f[6])) return false;
          }
          left -= n;
        }
      }
      return true;
    });
  } catch (const ModelWriteError& e) {
    if (!failed.empty()) throw TileFileError("cannot write model file \"" + model_path + "\": " + failed);
    throw;
  }
}

void write_scaffold(const std::string& path, const Scaffold& s) {
  std::string bytes(kScaffoldMagic, sizeof kScaffoldMagic);
  put(bytes, static_cast<std::uint64_t>(s.cameras.size()));
  for (std::size_t v = 0; v < s.cameras.size(); ++v) {
    const Camera& c = s.cameras[v];
    for (float x : c.K) put(bytes, x);
    for (float x : c.R) put(bytes, x);
    for (float x : c.t) put(bytes, x);
    for (float x : c.center) put(bytes, x);
    for (int x : {c.index, c.width, c.height, s.labels[v].width, s.labels[v].height}) put(bytes, x);
    put(bytes, s.labels[v].count);
    put_all(bytes, s.labels[v].runs);
  }
  put_all(bytes, s.particles);
  put_all(bytes, s.offsets);
  put_all(bytes, s.normals);
  put(bytes, static_cast<std::uint64_t>(s.input_pixels));
  put(bytes, s.input_min);
  put(bytes, s.input_max);
  put_all(bytes, s.view_maxima);
  write_atomically(path, bytes);
}

Scaffold read_scaffold_file(const std::string& path) {
  std::ifstream in = open_checked(path, kScaffoldMagic, "a scaffold");
  const std::uint64_t limit = file_size(in);
  Scaffold s;
  std::uint64_t views = 0;
  get(in, views, path);
  if (views > limit) throw TileFileError("\"" + path + "\" is damaged");
  s.cameras.resize(views);
  s.labels.resize(views);
  for (std::size_t v = 0; v < views; ++v) {
    Camera& c = s.cameras[v];
    for (float& x : c.K) get(in, x, path);
    for (float& x : c.R) get(in, x, path);
    for (float& x : c.t) get(in, x, path);
    for (float& x : c.center) get(in, x, path);
    for (int* x : {&c.index, &c.width, &c.height, &s.labels[v].width, &s.labels[v].height}) get(in, *x, path);
    get(in, s.labels[v].count, path);
    get_all(in, s.labels[v].runs, path, limit);
  }
  get_all(in, s.particles, path, limit);
  get_all(in, s.offsets, path, limit);
  get_all(in, s.normals, path, limit);
  std::uint64_t pixels = 0;
  get(in, pixels, path);
  s.input_pixels = pixels;
  get(in, s.input_min, path);
  get(in, s.input_max, path);
  get_all(in, s.view_maxima, path, limit);
  return s;
}
