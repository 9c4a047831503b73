// SPDX-License-Identifier: MIT
// What the programs share. Each benchmark is named WORK/SUBJECT: one piece of work is
// done by the library, by a floor and perhaps by peers, and only figures of the same
// work are compared.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

// Each program registers its benchmarks here.
void register_benchmarks();

// Says what is wrong and ends the program unless `right`: what gives wrong results is
// not measured.
void require(bool right, const std::string& what);

// Allocations of this thread since it began, by whatever way they were made.
long allocations();

// Measures `step`, with the number of its allocations beside the time.
template <typename Step>
void measure(benchmark::State& state, const Step& step) {
  step();  // what is made once is not counted
  const long before = allocations();
  step();
  state.counters["allocations"] = static_cast<double>(allocations() - before);
  for (auto _ : state) step();
}

// Registers `function`, which is called with the state.
template <typename Function>
void add_benchmark(const std::string& work, const std::string& subject, Function function) {
  benchmark::RegisterBenchmark((work + "/" + subject).c_str(), std::move(function));
}
