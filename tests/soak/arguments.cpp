// SPDX-License-Identifier: MIT
#include "soak/arguments.h"

#include <charconv>

namespace zedipc::soak {

namespace {

template <typename Number>
bool read_number(const std::string& text, Number& number) {
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, number);
  return result.ec == std::errc() && result.ptr == end;
}

}  // namespace

std::string read_arguments(const std::vector<std::string>& arguments, Options& options) {
  if (arguments.size() > 2) return "too many arguments";
  if (!arguments.empty()) {
    int& seconds = options.seconds;
    if (!read_number(arguments[0], seconds) || seconds < kLeastSeconds || seconds > kMostSeconds) {
      return "'" + arguments[0] + "' is no number of seconds from " +
             std::to_string(kLeastSeconds) + " to " + std::to_string(kMostSeconds);
    }
  }
  if (arguments.size() == 2 && !read_number(arguments[1], options.seed)) {
    return "'" + arguments[1] + "' is no seed, which is a number from 0 to 4294967295";
  }
  return "";
}

}  // namespace zedipc::soak
