// SPDX-License-Identifier: MIT
// Conversions to integers that stop at the limits of their type on every host, where the
// language leaves the result open or the width to the host.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>

namespace zedipc {

// In base 10, as strtol does it where a long has 32 bits: it takes leading white space and a
// sign, anything else ends the number, and beyond the range it gives the nearest limit.
inline std::int32_t text_to_int32(const char* text) {
  using Limits = std::numeric_limits<std::int32_t>;
  const long long value = std::strtoll(text, nullptr, 10);
  return static_cast<std::int32_t>(std::clamp<long long>(value, Limits::min(), Limits::max()));
}

// Cuts towards zero; NaN gives 0.
template <typename Integer>
Integer double_to_integer(double value) {
  // -min is a power of two, so both bounds are exact as doubles.
  constexpr auto kLow = static_cast<double>(std::numeric_limits<Integer>::min());
  if (value != value) return 0;
  if (value <= kLow) return std::numeric_limits<Integer>::min();
  if (value >= -kLow) return std::numeric_limits<Integer>::max();
  return static_cast<Integer>(value);
}

}  // namespace zedipc
