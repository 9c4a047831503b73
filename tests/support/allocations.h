// SPDX-License-Identifier: MIT
// Counting allocations. A program with allocations.cpp among its sources has operators new
// and delete of its own.
#pragma once

namespace zedipc::test {

// The allocations of this thread since it began.
int allocations();

// How many allocations a call makes when it is not the thread's first.
template <typename Call>
int cost(const Call& call) {
  call();
  const int before = allocations();
  call();
  return allocations() - before;
}

}  // namespace zedipc::test
