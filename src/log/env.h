// SPDX-License-Identifier: MIT
// Reading the process's environment.
#pragma once

#include <string>

namespace zedipc {

// Copies the text of an environment variable to `value`. False, and an empty
// `value`, if it is not set; a variable that is set to nothing counts as set.
// Calls do not disturb each other; changing the environment meanwhile does.
bool env_lookup(const char* name, std::string& value);

}  // namespace zedipc
