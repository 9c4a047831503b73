// SPDX-License-Identifier: MIT
// Steps over JSON text that has to have one exact form.
#pragma once

#include <cstddef>
#include <cstring>
#include <string_view>

#include "json/escape.h"

namespace zedipc {

// A position in a text, and the text's end, where a terminator stands. A step returns false
// if it does not find what it names, and the position is of no use then.
struct Cursor {
  // So many digits always fit an integer.
  static constexpr std::ptrdiff_t kIntegerDigits = 9;

  const char* at;
  const char* const end;

  Cursor(const char* from, const char* to) : at(from), end(to) {}

  bool skip(char byte) {
    if (*at != byte) return false;
    ++at;
    return true;
  }

  // Does not move if the text is not there.
  template <std::size_t size>
  bool skip(const char (&text)[size]) {
    if (std::strncmp(at, text, size - 1) != 0) return false;
    at += size - 1;
    return true;
  }

  // A string without escapes.
  bool plain_string(std::string_view& text) {
    if (!skip('"')) return false;
    const char* const begin = at;
    at = find_escaped(at, end);
    text = std::string_view(begin, static_cast<std::size_t>(at - begin));
    return skip('"');
  }
};

}  // namespace zedipc
