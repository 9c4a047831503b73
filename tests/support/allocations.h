// SPDX-License-Identifier: MIT
// Counting allocations, and failing one. A program with allocations.cpp among its sources
// has operators new and delete of its own.
#pragma once

namespace zedipc::test {

// The allocations of this thread since it began.
int allocations();

// Makes that one of this thread's next allocations throw, the first being 1; 0: none.
void fail_allocation(int number);

// How many allocations a call makes when it is not the thread's first.
template <typename Call>
int cost(const Call& call) {
  call();
  const int before = allocations();
  call();
  return allocations() - before;
}

}  // namespace zedipc::test
