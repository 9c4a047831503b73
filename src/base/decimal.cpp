// SPDX-License-Identifier: MIT
// Doubles from text and to text, by the language's conversions wherever they give what the
// system's do.
#include "base/decimal.h"

#include <langinfo.h>

#include <cfloat>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace zedipc {

namespace {

// Older standard libraries have these conversions for integers only.
#ifdef __cpp_lib_to_chars

// Asks the processor, whose rounding the system's functions follow.
bool rounds_to_nearest() {
  static const volatile double smallest = DBL_MIN;
  const double tiny = smallest;
  return 1.0 + tiny == 1.0 - tiny;
}

// Whether the language's conversions, which know neither a locale nor another rounding, give
// what the system's do. Asked for each number, since both can change at any time.
bool has_usual_settings() {
  const char* const point = ::nl_langinfo(RADIXCHAR);
  return point[0] == '.' && point[1] == '\0' && rounds_to_nearest();
}

constexpr std::uint64_t kMillion = 1000000;
constexpr int kDecimals = 6;

// The error of `millionths`, which is a million times the value after rounding. It is exact:
// the value is split in two, and neither part's product needs rounding.
double distance(double value, double millionths) {
  std::uint64_t bits;
  std::memcpy(&bits, &value, sizeof bits);
  bits &= ~std::uint64_t{0x7FFFFFF};
  double high;
  std::memcpy(&high, &bits, sizeof high);
  return std::fabs((high * kMillion - millionths) + (value - high) * kMillion);
}

// Half a unit, or a little less, of the sixteenth digit of so many millionths.
double half_of_last_digit(std::uint64_t millionths) {
  double half = 0.4999e-15;
  for (std::uint64_t limit = 10; millionths > limit; limit *= 10) half *= 10.0;
  return half;
}

char* write_millionths(char* to, std::uint64_t millionths) {
  to = std::to_chars(to, to + kDoubleText, millionths / kMillion).ptr;
  std::uint64_t fraction = millionths % kMillion;
  if (fraction == 0) return to;
  *to++ = '.';
  for (int i = kDecimals; i-- > 0; fraction /= 10) to[i] = static_cast<char>('0' + fraction % 10);
  to += kDecimals;
  while (to[-1] == '0') --to;
  return to;
}

// The fast path, for numbers with at most six decimals, as most are. Null for any other, and
// whenever the sixteen digits might not be those decimals and zeros.
char* write_few_decimals(char* to, double value) {
  const double magnitude = std::fabs(value);
  // Smaller ones may have an exponent; the upper limit leaves at most sixteen digits.
  if (FLT_EVAL_METHOD != 0 || !(magnitude >= 1e-3 && magnitude < 1e9)) return nullptr;
  const double scaled = magnitude * kMillion;
  const auto millionths = static_cast<std::uint64_t>(scaled);
  if (static_cast<double>(millionths) != scaled) return nullptr;
  if (distance(magnitude, scaled) >= half_of_last_digit(millionths)) return nullptr;
  if (value < 0) *to++ = '-';
  return write_millionths(to, millionths);
}

#endif

}  // namespace

double text_to_double(const char* begin, [[maybe_unused]] const char* end) {
#ifdef __cpp_lib_to_chars
  double value = 0.0;
  // Without digits, or out of range, it is the system's to say.
  if (has_usual_settings() && std::from_chars(begin, end, value).ec == std::errc()) return value;
#endif
  return std::strtod(begin, nullptr);
}

char* double_to_text(char* to, double value) {
#ifdef __cpp_lib_to_chars
  if (has_usual_settings()) {
    if (char* const end = write_few_decimals(to, value)) return end;
    return std::to_chars(to, to + kDoubleText, value, std::chars_format::general, 16).ptr;
  }
#endif
  return to + std::snprintf(to, kDoubleText, "%.16g", value);
}

}  // namespace zedipc
