// SPDX-License-Identifier: MIT
// Reading the process's environment.
#pragma once

#include <string>

namespace zedipc {

// Copies an environment variable to `value`. If the variable is not set this gives false
// and an empty `value`; one that is set to nothing counts as set. Safe on several threads,
// as long as none changes the environment meanwhile.
bool env_lookup(const char* name, std::string& value);

}  // namespace zedipc
