// SPDX-License-Identifier: MIT
// Whether this is built with a sanitizer, or for coverage: all takes several times as long.
#pragma once

namespace zedipc::test {

#ifdef ZEDIPC_INSTRUMENTED
inline constexpr bool kInstrumented = true;
#else
inline constexpr bool kInstrumented = false;
#endif

}  // namespace zedipc::test
