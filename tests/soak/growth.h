// SPDX-License-Identifier: MIT
// What the server's process holds, at the beginning and at the end of a long life.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace zedipc::soak {

struct Usage {
  long descriptors = 0;
  long threads = 0;
  long memory = 0;  // kB, its own: what is in files is not counted
};

// What the process holds now.
Usage usage_of(pid_t pid);

// The median of each, so that a moment does not count.
Usage typical(const std::vector<Usage>& samples);

// What grew between two times at which the same clients were connected. Memory may grow
// by a tenth and `kMemorySlack`: allocators settle slowly. A sanitizer keeps freed memory
// for as long as it likes, and finds leaks by itself: with one it is not to be judged.
inline constexpr long kMemorySlack = 3072;  // kB
std::vector<std::string> growth(const Usage& first, const Usage& last, bool memory_is_judged);

}  // namespace zedipc::soak
