// SPDX-License-Identifier: MIT
// Undoes the escapes of a string in one pass, in place.
#include "json/unescape.h"

#include <cstdlib>

namespace zedipc {

namespace {

// The number in `count` (at most four) bytes, up to the first that strtoul does not take.
// It takes a sign and leading blanks, and that is behaviour.
unsigned long read_digits(const char* from, std::size_t count, int base) {
  const std::string digits(from, count);
  return std::strtoul(digits.c_str(), nullptr, base);
}

// Writes one UTF-16 unit as UTF-8 and gives the end of it. The halves of a surrogate pair
// become a sequence of three bytes each, on purpose.
char* write_utf8(char* to, unsigned long unit) {
  const auto tail = [](unsigned long bits) { return static_cast<char>(0x80 | (bits & 0x3F)); };
  if (unit < 0x80) {
    *to++ = static_cast<char>(unit);
  } else if (unit < 0x800) {
    *to++ = static_cast<char>(0xC0 | (unit >> 6));
    *to++ = tail(unit);
  } else {
    *to++ = static_cast<char>(0xE0 | (unit >> 12));
    *to++ = tail(unit >> 6);
    *to++ = tail(unit);
  }
  return to;
}

// The byte that a single letter stands for; any other stands for itself.
char single_escape(char letter) {
  switch (letter) {
    case 'b':
      return '\b';
    case 'f':
      return '\f';
    case 'n':
      return '\n';
    case 'r':
      return '\r';
    case 't':
      return '\t';
    default:
      return letter;
  }
}

}  // namespace

// No escape is shorter than what it stands for, so the text can be overwritten from its
// start while it is read.
void unescape_string(std::string& text) {
  const char* from = text.data();
  const char* const end = from + text.size();
  char* to = text.data();
  while (from != end) {
    if (*from != '\\' || end - from < 2) {
      *to++ = *from++;
      continue;
    }
    const char letter = from[1];
    const auto behind = end - from - 2;  // bytes after the letter
    if (letter >= '0' && letter <= '7' && behind >= 2) {
      *to++ = static_cast<char>(read_digits(from + 1, 3, 8));
      from += 4;
    } else if (letter == 'u' && behind >= 4) {
      to = write_utf8(to, read_digits(from + 2, 4, 16));
      from += 6;
    } else {
      *to++ = single_escape(letter);
      from += 2;
    }
  }
  text.resize(static_cast<std::size_t>(to - text.data()));
}

}  // namespace zedipc
