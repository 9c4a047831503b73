// SPDX-License-Identifier: MIT
// Values from text and to text.
#include "inside.h"
#include "json/inputs.h"
#include "json/subjects.h"

void register_benchmarks() {
  const std::vector<Input> inputs = make_inputs();
  add_zedipc(inputs);
  add_floor(inputs);
#ifdef BENCH_NLOHMANN
  add_nlohmann(inputs);
#endif
#ifdef BENCH_RAPIDJSON
  add_rapidjson(inputs);
#endif
#ifdef BENCH_JSONCPP
  add_jsoncpp(inputs);
#endif
}
