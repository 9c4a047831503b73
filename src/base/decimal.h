// SPDX-License-Identifier: MIT
// Doubles from text and to text: exactly what the system's functions give, several times
// as fast where locale and rounding are the usual ones.
#pragma once

#include <cstddef>

namespace zedipc {

// What strtod reads at `begin`, for a number of digits, point and exponent, with or
// without a minus, that ends at `end`.
double text_to_double(const char* begin, const char* end);

// Enough room for `double_to_text`, whatever the locale's decimal point is.
constexpr std::size_t kDoubleText = 64;

// Writes what printf's "%.16g" gives, without a terminator, and returns its end. Sixteen
// digits on purpose, although one more would read back as the same double.
char* double_to_text(char* to, double value);

}  // namespace zedipc
