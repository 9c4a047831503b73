// SPDX-License-Identifier: MIT
// The system's own function, behind a function of this program that takes its place.
#pragma once

#include <dlfcn.h>

namespace zedipc::test {

template <typename Function>
Function next(const char* name) {
  return reinterpret_cast<Function>(dlsym(RTLD_NEXT, name));
}

}  // namespace zedipc::test
