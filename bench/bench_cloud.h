#pragma once

// Particle sets of the benchmarks: four views of a plane, `side` x `side` pixels each, with the
// field of view fixed so that the set has the same density at every size. The radius is 5 pixels
// at the average depth, as in the fine model.

#include <sys/resource.h>

#include <iostream>
#include <sstream>

#include "tests/support/particle_cloud.h"

namespace bench_cloud {

constexpr float kHeight = 2.0f;

inline float fx_for(int side) { return static_cast<float>(side); }
inline float fine_radius(int side) { return 5.0f * kHeight / fx_for(side); }

// Depth noise shrinks with the pixel size, so that noise, radius and cell stay in proportion and
// every size asks for the same work per particle.
inline cloud::ParticleSet plane_set(int side) {
  return cloud::plane_views(4, side, side, fx_for(side), kHeight, 0.6f, 0.003f * 250.0f / static_cast<float>(side), 99);
}

// Peak resident set of the process so far, in bytes.
inline double peak_rss_bytes() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_maxrss) * 1024.0;
}

// Processor time of the process so far, all threads, user and system, in seconds.
inline double process_cpu_seconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
         1e-6 * static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec);
}

// Keeps the progress lines of the operators off the benchmark table.
struct QuietStdout {
  std::ostringstream sink;
  std::streambuf* old = std::cout.rdbuf(sink.rdbuf());
  ~QuietStdout() { std::cout.rdbuf(old); }
};

}  // namespace bench_cloud
