// SPDX-License-Identifier: MIT
#pragma once

#include <vector>

#include "harness/report.h"
#include "harness/subject.h"

namespace bench {

// How long to go on, but for at least a few samples.
struct Limits {
  double seconds;
  int flood;  // messages at a time in a flood of small ones
};

// Does the work. Throws if a message is lost, arrives twice or has changed its size.
std::vector<Result> measure(Subject& subject, const Work& work, const Limits& limits);

}  // namespace bench
