#pragma once

#include <benchmark/benchmark.h>

#include <cstdio>
#include <exception>

namespace bench_main {

// Prepares the benchmarks' input (reads or generates it), then runs the registered benchmarks.
// A failed preparation ends with one line naming the program and the cause, exit status 1.
template <class Prepare>
int run(const char* program, Prepare prepare) {
  try {
    prepare();
  } catch (const std::exception& e) {
    std::fprintf(stderr, "%s: %s\n", program, e.what());
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

}  // namespace bench_main
