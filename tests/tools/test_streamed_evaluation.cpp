#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/generated_scene.h"
#include "tests/support/io_test_support.h"
#include "tools/scene/evaluation.h"
#include "tools/scene/order_statistic.h"
#include "tools/scene/scene_kinds.h"
#include "tools/scene/street.h"
#include "tools/scene/surface_error.h"
#include "tools/scene/surface_lookup.h"

// The evaluator streams a model past grids of the true samples and finds nearest surfaces by
// slabs: its figures must be those of the whole model held in memory, to the bit.

using namespace scene;

namespace {

std::string ply_of(const std::vector<ModelPoint>& model) {
  std::string bytes = "ply\nformat binary_little_endian 1.0\nelement vertex " + std::to_string(model.size()) +
                      "\nproperty float x\nproperty float y\nproperty float z\nproperty uchar red\n"
                      "property float nx\nproperty float ny\nproperty float nz\nend_header\n";
  for (const ModelPoint& p : model) {
    const float v[6] = {static_cast<float>(p.point.x),  static_cast<float>(p.point.y),  static_cast<float>(p.point.z),
                        static_cast<float>(p.normal.x), static_cast<float>(p.normal.y), static_cast<float>(p.normal.z)};
    bytes.append(reinterpret_cast<const char*>(v), 12);
    bytes.push_back('\x7f');
    bytes.append(reinterpret_cast<const char*>(v + 3), 12);
  }
  return bytes;
}

double kth_by_sorting(std::vector<double> values, size_t k) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(k), values.end());
  return values[k];
}

}  // namespace

// Any rank, any buffer: one pass while the values fit, narrowing passes beyond (at most four for
// doubles), negative values and repeats, a stream of one repeated value, and a rank past the end.
TEST(StreamedEvaluation, OrderStatisticIsExact) {
  std::mt19937 rng(7);
  std::normal_distribution<double> normal(0.0002, 0.001);
  std::vector<double> values(30000);
  for (size_t i = 0; i < values.size(); ++i) values[i] = i % 3 == 2 ? values[i / 2] : normal(rng);
  for (size_t capacity : {size_t{1}, size_t{500}, values.size()})
    for (size_t rank : {size_t{0}, values.size() / 2, values.size() - 1}) {
      OrderStatistic s = make_order_statistic(rank, capacity);
      int passes = 0;
      do {
        for (double v : values) add_value(s, v);
        ++passes;
      } while (!end_pass(s));
      EXPECT_EQ(s.value, kth_by_sorting(values, rank)) << capacity << " " << rank;
      EXPECT_LE(passes, capacity == values.size() ? 1 : 4);
    }
  OrderStatistic same = make_order_statistic(40, 1);
  do
    for (int i = 0; i < 100; ++i) add_value(same, 0.25);
  while (!end_pass(same));
  EXPECT_EQ(same.value, 0.25);
  OrderStatistic beyond = make_order_statistic(10);
  for (int i = 0; i < 5; ++i) add_value(beyond, i);
  EXPECT_THROW(end_pass(beyond), std::logic_error);
}

// The slab lookup returns closest_surface's shape, distance and normal exactly, on a long street
// and on the compact sample scenes, for points on, near and far from the surfaces.
TEST(StreamedEvaluation, SurfaceLookupIsClosestSurface) {
  for (const Scene& scene : {make_street_scene(150), make_scene(SceneKind::thin)}) {
    const SurfaceLookup lookup = make_surface_lookup(scene);
    std::mt19937 rng(11);
    std::uniform_real_distribution<double> unit(-1.0, 1.0);
    std::vector<Vec3> points;
    for (const Shape& s : scene.shapes)
      for (double reach : {0.0, 0.01, 0.5, 4.0})
        for (int k = 0; k < 20; ++k) points.push_back(s.center + reach * Vec3{unit(rng), unit(rng), unit(rng)} + Vec3{0, 0, s.size.z});
    points.push_back({-100, 0, 0});
    points.push_back({1e4, 3, 1});
    for (const Vec3& p : points) {
      const SurfacePoint fast = nearest_surface(lookup, p), every = closest_surface(scene, p);
      ASSERT_EQ(fast.shape, every.shape) << p.x << " " << p.y << " " << p.z;
      EXPECT_EQ(fast.distance, every.distance);
      EXPECT_EQ(fast.normal.x, every.normal.x);
      EXPECT_EQ(fast.normal.z, every.normal.z);
    }
  }
}

// Samples covered by streamed points, with and without labels, against trying every pair; points
// far outside the samples' grid are passed over.
TEST(StreamedEvaluation, CoveredSamplesAgainstEveryPair) {
  std::mt19937 rng(5);
  std::uniform_real_distribution<double> unit(0.0, 0.1);
  std::vector<Vec3> samples(800), points(1500);
  std::vector<int> sample_labels(samples.size()), point_labels(points.size());
  for (size_t k = 0; k < samples.size(); ++k) {
    samples[k] = {unit(rng), unit(rng), 0.2 * unit(rng)};
    sample_labels[k] = static_cast<int>(k % 3);
  }
  for (size_t i = 0; i < points.size(); ++i) {
    points[i] = i % 100 == 0 ? Vec3{1e5, -3e4, 7} : Vec3{unit(rng), unit(rng), 0.2 * unit(rng)};
    point_labels[i] = static_cast<int>(i % 2);
  }
  const double tolerance = 0.004;
  const std::vector<char> plain = covered_samples(samples, points, tolerance);
  const std::vector<char> labelled = covered_samples(samples, points, tolerance, sample_labels, point_labels);
  size_t covered = 0;
  for (size_t k = 0; k < samples.size(); ++k) {
    bool any = false, own = false;
    for (size_t i = 0; i < points.size(); ++i)
      if (length(points[i] - samples[k]) < tolerance) {
        any = true;
        own = own || point_labels[i] == sample_labels[k];
      }
    EXPECT_EQ(plain[k], any) << k;
    EXPECT_EQ(labelled[k], own) << k;
    covered += any;
  }
  EXPECT_GT(covered, samples.size() / 4);
  EXPECT_LT(covered, samples.size());
  EXPECT_THROW(covered_samples(samples, points, 0.0), std::runtime_error);
}

// The true samples alone cover the surface and remove every planted outlier; with every planted
// point none is removed. A model file read in small blocks measures exactly as the model in memory:
// accuracy, completeness at every distance, the sheet's faces and the planted outliers left.
TEST(StreamedEvaluation, PlantedOutliersAndBlocksMeasuredAsTheWholeModel) {
  SceneOptions o = e2e::scene_options(io_test::scratch_path("streamed"), 3, 160, 120);
  o.outliers = 0.03;
  write_scene(make_default_scene(), o);
  const std::vector<double> distances = {0.002, 0.005};
  const std::vector<ModelPoint> truth = read_model_ply(o.out_dir + "/ground_truth.ply");
  const std::vector<ModelPoint> planted = read_model_ply(o.out_dir + "/outliers.ply");
  const Evaluation clean = evaluate_model(o.out_dir, truth, distances);
  EXPECT_GT(clean.planted_outliers, 500u);
  EXPECT_EQ(clean.outliers_removed, 1.0);
  ASSERT_EQ(clean.within.size(), 2u);
  EXPECT_EQ(clean.within[0].completeness, 1.0);
  EXPECT_GT(clean.within[0].accuracy, 0.999);
  std::vector<ModelPoint> model = truth;
  model.insert(model.end(), planted.begin(), planted.end());
  const Evaluation kept = evaluate_model(o.out_dir, model);
  EXPECT_EQ(kept.outliers_removed, 0.0);
  EXPECT_NE(format_evaluation(kept).find("outliers:     0.00 % of " + std::to_string(kept.planted_outliers) +
                                         " planted points removed"),
            std::string::npos);

  model = truth;
  std::mt19937 rng(2);
  std::normal_distribution<double> noise(0.0, 0.003);
  for (ModelPoint& p : model) p.point = p.point + Vec3{noise(rng), noise(rng), noise(rng)};
  model.resize(model.size() * 2 / 3);
  model.insert(model.end(), planted.begin(), planted.begin() + static_cast<std::ptrdiff_t>(planted.size() / 2));
  const std::string path = io_test::scratch_path("streamed_model.ply");
  io_test::write_bytes(path, ply_of(model));

  model = read_model_ply(path);  // as the file holds it, in single precision

  const Evaluation whole = evaluate_model(o.out_dir, model, distances);
  const Evaluation streamed = evaluate_model(o.out_dir, model_blocks(path, {}, 777), distances);
  const auto figures = [](const Evaluation& e) {
    EXPECT_EQ(e.within.size(), 2u);
    return std::vector<double>{double(e.points), e.accuracy.median, e.accuracy.mean, e.accuracy.rms, e.accuracy.max,
                               e.accuracy.within, e.completeness_1, e.completeness_2, e.within.at(0).completeness,
                               e.within.at(0).accuracy, e.within.at(1).completeness, e.within.at(1).accuracy,
                               double(e.sheet.points[0]), double(e.sheet.points[1]), double(e.sheet.facing_own_side[0]),
                               double(e.sheet.facing_own_side[1]), e.outliers_removed};
  };
  EXPECT_EQ(figures(streamed), figures(whole));
  // The figures themselves: the noisy samples cover the surface in part, half the outliers stay.
  EXPECT_GT(whole.completeness_2, 0.5);
  EXPECT_LT(whole.completeness_1, 0.9);
  EXPECT_GT(whole.outliers_removed, 0.3);
  EXPECT_LT(whole.outliers_removed, 0.7);
  const std::vector<Vec3> points = [&] {
    std::vector<Vec3> p;
    for (const ModelPoint& m : model) p.push_back(m.point);
    return p;
  }();
  EXPECT_EQ(whole.accuracy.median, measure_accuracy(make_default_scene(), points, whole.footprint).median);
}
