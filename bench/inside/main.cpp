// SPDX-License-Identifier: MIT
#include <benchmark/benchmark.h>

#include "inside.h"

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  register_benchmarks();
  benchmark::RunSpecifiedBenchmarks();
}
