// SPDX-License-Identifier: MIT
// What a soak run says at its end.
#pragma once

#include <string>
#include <vector>

#include "soak/controller.h"

namespace zedipc::soak {

std::string table(const Options& options, const Outcome& outcome);

// Why the account proves too little: too much of it fell into the windows in which
// nothing is promised, or something did not happen at all.
std::vector<std::string> shortcomings(const Totals& totals);

}  // namespace zedipc::soak
