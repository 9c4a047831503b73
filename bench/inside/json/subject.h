// SPDX-License-Identifier: MIT
// The works that every subject does. A subject is a class of static functions:
//
//   using Value = ...;                            default-constructible
//   static void parse(Value&, const std::string& text);
//   static Text dump(const Value&);               the text as the subject's users get it
//   static std::string plain(const Text&);
#pragma once

#include <string>
#include <vector>

#include "inside.h"
#include "json/inputs.h"

template <typename Subject>
void require_same_content(const Input& input, const char* name) {
  typename Subject::Value value;
  Subject::parse(value, input.text);
  require(same_content(input.text, Subject::plain(Subject::dump(value))), input.name + "/" + name);
}

// A value's whole life is measured, including its end.
template <typename Subject>
void measure_parse(benchmark::State& state, const Input& input) {
  measure(state, [&] {
    typename Subject::Value value;
    Subject::parse(value, input.text);
    benchmark::DoNotOptimize(value);
  });
}

template <typename Subject>
void measure_dump(benchmark::State& state, const Input& input) {
  typename Subject::Value value;
  Subject::parse(value, input.text);
  measure(state, [&] {
    auto text = Subject::dump(value);
    benchmark::DoNotOptimize(text);
  });
}

template <typename Subject>
void measure_parse_dump(benchmark::State& state, const Input& input) {
  measure(state, [&] {
    typename Subject::Value value;
    Subject::parse(value, input.text);
    auto text = Subject::dump(value);
    benchmark::DoNotOptimize(text);
  });
}

template <typename Subject>
void add_subject(const std::vector<Input>& inputs, const char* name) {
  using Work = void (*)(benchmark::State&, const Input&);
  const auto add = [&](const char* work, const Input& input, Work function) {
    add_benchmark(std::string(work) + "/" + input.name, name, [=](benchmark::State& state) {
      require_same_content<Subject>(input, name);
      function(state, input);
    });
  };
  for (const Input& input : inputs) {
    add("json_parse", input, measure_parse<Subject>);
    add("json_dump", input, measure_dump<Subject>);
    add("json_parse_dump", input, measure_parse_dump<Subject>);
  }
}
