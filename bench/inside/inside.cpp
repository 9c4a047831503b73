// SPDX-License-Identifier: MIT
#include "inside.h"

#include <cstdio>
#include <cstdlib>

// The C library's own functions, whose names are taken here.
extern "C" {
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
}

namespace {

// The initial-exec model keeps the counting from allocating.
thread_local long count __attribute__((tls_model("initial-exec"))) = 0;

}  // namespace

// operator new comes here too, also that of the shared libraries.
extern "C" void* malloc(std::size_t size) {
  ++count;
  return __libc_malloc(size);
}

extern "C" void* calloc(std::size_t number, std::size_t size) {
  ++count;
  return __libc_calloc(number, size);
}

extern "C" void* realloc(void* memory, std::size_t size) {
  ++count;
  return __libc_realloc(memory, size);
}

extern "C" void* aligned_alloc(std::size_t alignment, std::size_t size) {
  ++count;
  return __libc_memalign(alignment, size);
}

long allocations() { return count; }

void require(bool right, const std::string& what) {
  if (right) return;
  std::fprintf(stderr, "wrong result: %s\n", what.c_str());
  std::exit(1);
}
