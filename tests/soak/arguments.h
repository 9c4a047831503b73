// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "soak/controller.h"

namespace zedipc::soak {

// Below, there is no time to measure anything. Above, the numbers of messages end.
inline constexpr int kLeastSeconds = 20;
inline constexpr int kMostSeconds = 7200;

// [SECONDS [SEED]]: changes the options that are given. What is wrong, or "".
std::string read_arguments(const std::vector<std::string>& arguments, Options& options);

}  // namespace zedipc::soak
