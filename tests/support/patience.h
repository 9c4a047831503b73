// SPDX-License-Identifier: MIT
#pragma once

namespace zedipc::test {

// The time to wait for what happens within `msec` of a program that is not emulated.
constexpr int patience(int msec) {
#ifdef EMULATED
  constexpr int kSlowness = 5;
#else
  constexpr int kSlowness = 1;
#endif
  return msec < 0 ? msec : msec * kSlowness;
}

}  // namespace zedipc::test
