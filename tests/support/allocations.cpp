// SPDX-License-Identifier: MIT
#include "support/allocations.h"

#include <cstdlib>
#include <new>

namespace {

thread_local int count = 0;
thread_local int until_failure = 0;

}  // namespace

int zedipc::test::allocations() { return count; }

void zedipc::test::fail_allocation(int number) { until_failure = number; }

// Not inlined, so that the compiler sees pairs of new and delete.
[[gnu::noinline]] void* operator new(std::size_t size) {
  ++count;
  if (until_failure != 0 && --until_failure == 0) throw std::bad_alloc();
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}

[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }
