// SPDX-License-Identifier: MIT
// What the programs share. Each benchmark is named WORK/SUBJECT: the library, a floor and
// perhaps peers do the same work, and only figures of the same work are compared.
#pragma once

#include <benchmark/benchmark.h>

#include <string>
#include <utility>

// Each program registers its benchmarks here.
void register_benchmarks();

// Unless `right`, says what is wrong and ends the program: nobody wants the speed of wrong
// results.
void require(bool right, const std::string& what);

// All allocations of this thread since it began.
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

// Registers `function`, which gets the state.
template <typename Function>
void add_benchmark(const std::string& work, const std::string& subject, Function function) {
  benchmark::RegisterBenchmark((work + "/" + subject).c_str(), std::move(function));
}
