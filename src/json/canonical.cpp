// SPDX-License-Identifier: MIT
// Checks text against the form in which values are written, without making a value.
#include "json/canonical.h"

#include <algorithm>
#include <cstddef>
#include <string_view>

#include "base/decimal.h"
#include "json/cursor.h"
#include "json/escape.h"

namespace zedipc {

namespace {

// Each level takes stack here, and deeper nesting is rare.
constexpr int kDeepest = 16;

// One walk over one value. A step returns false where we would write something else.
struct WrittenText : Cursor {
  using Cursor::Cursor;

  bool value(int levels) {
    switch (*at) {
      case '"':
        return string();
      case '{':
        return levels > 0 && object(levels - 1);
      case '[':
        return levels > 0 && array(levels - 1);
      case 't':
        return skip("true");
      case 'f':
        return skip("false");
      case 'n':
        return skip("null");
      default:
        return number();
    }
  }

  bool array(int levels) {
    ++at;
    if (skip(']')) return true;
    do {
      if (!value(levels)) return false;
    } while (skip(','));
    return skip(']');
  }

  // Members are written in the order of their keys, each key once.
  bool object(int levels) {
    ++at;
    if (skip('}')) return true;
    std::string_view last;
    do {
      std::string_view key;
      if (!plain_string(key) || (last.data() != nullptr && key <= last)) return false;
      if (!skip(':') || !value(levels)) return false;
      last = key;
    } while (skip(','));
    return skip('}');
  }

  bool string() {
    ++at;
    for (;;) {
      at = find_escaped(at, end);
      if (*at != '\\') return skip('"');
      if (!is_short_escape(at[1])) return false;
      at += 2;
    }
  }

  bool number() {
    const char* const begin = at;
    skip('-');
    const char* const digits = at;
    skip_digits();
    const std::ptrdiff_t count = at - digits;
    if (count == 0 || count > kIntegerDigits) return false;
    if (*at == '.' || *at == 'e') return real(begin);
    // No leading zeros, and no "-0", which reads as 0.
    return *digits != '0' || (count == 1 && digits == begin);
  }

  // Only writing the number tells which digits it is written with.
  bool real(const char* begin) {
    if (skip('.')) skip_digits();
    if (skip('e')) {
      if (!skip('-')) skip('+');
      skip_digits();
    }
    char text[kDoubleText];
    const char* const text_end = double_to_text(text, text_to_double(begin, at));
    return std::equal(begin, at, static_cast<const char*>(text), text_end);
  }

  void skip_digits() {
    while (*at >= '0' && *at <= '9') ++at;
  }
};

}  // namespace

const char* end_of_canonical(const char* begin, const char* end) {
  WrittenText text(begin, end);
  return text.value(kDeepest) ? text.at : nullptr;
}

}  // namespace zedipc
