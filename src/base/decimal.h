// SPDX-License-Identifier: MIT
// Doubles from text and to text: the very results of the system's functions, several
// times as fast where the process has their usual settings.
#pragma once

#include <cstddef>

namespace zedipc {

// What strtod reads at `begin`, for a number of digits, point and exponent, with or
// without a minus, that ends at `end`.
double text_to_double(const char* begin, const char* end);

// Room for what the function below writes, whatever the locale's decimal point is.
constexpr std::size_t kDoubleText = 64;

// Writes what printf's "%.16g" gives, without a terminator, and gives the place behind
// it.
char* double_to_text(char* to, double value);

}  // namespace zedipc
