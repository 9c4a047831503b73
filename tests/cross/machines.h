// SPDX-License-Identifier: MIT
// The example programs of the two machines: the one that this test was built for, which is
// emulated, and the one that it runs on.
#pragma once

#include <string>

#include "examples/run.h"

namespace example::test {

enum class Machine { kEmulated, kNative };

inline std::string program(Machine machine, const std::string& name) {
  return machine == Machine::kNative ? NATIVE_EXAMPLES_DIR "/" + name : program(name);
}

inline std::string name_of(Machine machine) {
  return machine == Machine::kNative ? "Native" : "Emulated";
}

}  // namespace example::test
