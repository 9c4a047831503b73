// SPDX-License-Identifier: MIT
// What the process no longer uses of its memory.
#pragma once

#include <cstdlib>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace zedipc {

// Gives free memory back to the system, where the C library keeps it for later. Takes up to
// milliseconds, and whoever allocates next pays for it again: nothing for a busy moment.
inline void release_free_memory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace zedipc
