// Splats per second of the point renderer: the fine model of a run rendered with render_points
// into every view of its scene.
//   bench_render [benchmark flags] --scene DIR --model FILE
// DIR holds view_00.txt, view_01.txt, ...; FILE is the run's model.ply. bench/run-render makes
// both and reports the time against the run's own.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/bench_main.h"
#include "device/memory.h"
#include "ketra/tools.h"
#include "src/app/scene_input.h"
#include "src/render/render_points.h"

namespace {

struct Model {
  std::vector<Particle> particles;
  std::vector<float> offsets;
  std::vector<float3> normals;
};

// The binary PLY the program writes: per vertex x y z nx ny nz as float, three colour bytes, psz
// as float (the particle's radius). Positions become the particles' ray origins at offset 0.
Model read_model(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error(path + ": cannot open");
  std::string line, header;
  long count = -1;
  while (std::getline(in, line) && line != "end_header") {
    header += line + "\n";
    if (line.rfind("element vertex ", 0) == 0) count = std::stol(line.substr(15));
  }
  const char* expected =
      "property float x\nproperty float y\nproperty float z\nproperty float nx\nproperty float ny\n"
      "property float nz\nproperty uchar diffuse_red\nproperty uchar diffuse_green\nproperty uchar diffuse_blue\n"
      "property float psz\n";
  if (count < 0 || header.find("binary_little_endian") == std::string::npos || header.find(expected) == std::string::npos)
    throw std::runtime_error(path + ": not a model file of this program");
  Model m;
  constexpr std::size_t record = 6 * 4 + 3 + 4;
  std::vector<char> bytes(record * static_cast<std::size_t>(count));
  if (!in.read(bytes.data(), static_cast<std::streamsize>(bytes.size()))) throw std::runtime_error(path + ": truncated");
  for (long i = 0; i < count; ++i) {
    const char* r = bytes.data() + record * static_cast<std::size_t>(i);
    float f[6], psz;
    std::memcpy(f, r, sizeof f);
    std::memcpy(&psz, r + 27, sizeof psz);
    Particle p{};
    p.pos = make_float3(f[0], f[1], f[2]);
    p.dir = make_float3(0.0f, 0.0f, 1.0f);
    p.color = make_uchar4(static_cast<unsigned char>(r[24]), static_cast<unsigned char>(r[25]),
                          static_cast<unsigned char>(r[26]), 255);
    p.radius = psz;
    m.particles.push_back(p);
    m.offsets.push_back(0.0f);
    m.normals.push_back(make_float3(f[3], f[4], f[5]));
  }
  return m;
}

std::vector<Camera> read_cameras(const std::string& dir) {
  std::vector<Camera> cameras;
  for (int i = 0;; ++i) {
    char name[32];
    std::snprintf(name, sizeof name, "/view_%02d.txt", i);
    if (!std::filesystem::exists(dir + name)) break;
    cameras.emplace_back();
    CMatrix<float> depth;
    read_view(dir + name, i, cameras.back(), depth);
  }
  if (cameras.empty()) throw std::runtime_error(dir + ": no view files");
  return cameras;
}

std::vector<Camera> cameras;
Model model;

void BM_RenderAllViews(benchmark::State& state) {
  Points points = createPoints(model.particles, model.offsets, model.normals);
  RenderBuffer rb = createRenderBuffer(cameras[0].width, cameras[0].height);
  for (auto _ : state)
    for (const Camera& camera : cameras) render_points(rb, points, camera, 0.02f, 0.0f, empty_depth, 1.0f);
  const double splats = static_cast<double>(model.particles.size()) * static_cast<double>(cameras.size());
  state.counters["points"] = static_cast<double>(model.particles.size());
  state.counters["views"] = static_cast<double>(cameras.size());
  state.counters["splats_per_second"] = benchmark::Counter(splats, benchmark::Counter::kIsIterationInvariantRate);
  freeRenderBuffer(rb);
  freePoints(points);
}
BENCHMARK(BM_RenderAllViews)->Unit(benchmark::kSecond)->MeasureProcessCPUTime()->UseRealTime()->Iterations(3);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  std::string scene_dir = "sample/scene", model_path = "sample/model/model.ply";
  for (int i = 1; i < argc; i += 2) {
    const bool has_value = i + 1 < argc;
    if (has_value && std::strcmp(argv[i], "--scene") == 0) {
      scene_dir = argv[i + 1];
    } else if (has_value && std::strcmp(argv[i], "--model") == 0) {
      model_path = argv[i + 1];
    } else {
      std::fprintf(stderr, "bench_render: unknown argument %s\n", argv[i]);
      return 1;
    }
  }
  return bench_main::run("bench_render", [&] {
    cameras = read_cameras(scene_dir);
    model = read_model(model_path);
  });
}
