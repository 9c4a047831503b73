// SPDX-License-Identifier: MIT
// Writes strings with their escapes, eight bytes at a time where none is needed, and undoes
// escapes in one pass.
#include "json/escape.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace zedipc {

namespace {

// The longest escape of one byte is \u and four digits.
constexpr std::size_t kLongestEscape = 6;
// As much text as is written without asking for room again.
constexpr std::ptrdiff_t kPiece = 64;
static_assert(kPiece * kLongestEscape <= TextSink::kRoom);

using Word = std::uint64_t;

constexpr Word repeated(unsigned char byte) { return Word{0x0101010101010101} * byte; }

// 0 if no byte of the word needs an escape. A subtraction sets the highest bit of a byte below
// 0x80 only if the byte is less than what is taken off, or if the byte below it borrowed, and
// then that one needs an escape.
constexpr Word special(Word word) {
  const Word below_space = word - repeated(0x20);
  const Word quote = (word ^ repeated('"')) - repeated(1);
  const Word backslash = (word ^ repeated('\\')) - repeated(1);
  return (below_space | quote | backslash) & ~word & repeated(0x80);
}

bool needs_escape(char byte) {
  return static_cast<unsigned char>(byte) < 0x20 || byte == '"' || byte == '\\';
}

// A byte with an escape of one letter, and the letter.
struct ShortEscape {
  char byte;
  char letter;
};
constexpr ShortEscape kShortEscapes[] = {{'"', '"'},  {'\\', '\\'}, {'\n', 'n'}, {'\t', 't'},
                                         {'\r', 'r'}, {'\b', 'b'},  {'\f', 'f'}};

char* write_escape(char* to, char byte) {
  static const char kDigits[] = "0123456789ABCDEF";
  *to++ = '\\';
  for (const ShortEscape& escape : kShortEscapes) {
    if (escape.byte != byte) continue;
    *to++ = escape.letter;
    return to;
  }
  *to++ = 'u';
  *to++ = '0';
  *to++ = '0';
  *to++ = kDigits[static_cast<unsigned char>(byte) >> 4];
  *to++ = kDigits[static_cast<unsigned char>(byte) & 0xF];
  return to;
}

char* write_bytes(char* to, const char* from, const char* end) {
  for (; from != end; ++from) {
    if (needs_escape(*from)) {
      to = write_escape(to, *from);
    } else {
      *to++ = *from;
    }
  }
  return to;
}

template <typename Part>
Part load(const char* from) {
  Part part;
  std::memcpy(&part, from, sizeof part);
  return part;
}

template <typename Part>
void store(char* to, Part part) {
  std::memcpy(to, &part, sizeof part);
}

bool is_plain_piece(const char* from) {
  Word found = 0;
  for (int i = 0; i < kPiece; i += 8) found |= special(load<Word>(from + i));
  return found == 0;
}

// Copies a word at a time where nothing needs an escape. Gives the end of what was written.
char* write_escaped(char* to, const char* from, const char* end) {
  for (; end - from >= 8; from += 8) {
    const auto word = load<Word>(from);
    if (special(word) != 0) {
      to = write_bytes(to, from, from + 8);
    } else {
      store(to, word);
      to += 8;
    }
  }
  if (end - from < 4) return write_bytes(to, from, end);
  // Two halves, which may overlap.
  const auto first = load<std::uint32_t>(from);
  const auto last = load<std::uint32_t>(end - 4);
  if (special(Word{first} << 32 | last) != 0) return write_bytes(to, from, end);
  store(to, first);
  to += end - from;
  store(to - 4, last);
  return to;
}

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
  for (const ShortEscape& escape : kShortEscapes) {
    if (escape.letter == letter) return escape.byte;
  }
  return letter;
}

}  // namespace

const char* find_escaped(const char* from, const char* end) {
  while (end - from >= 8 && special(load<Word>(from)) == 0) from += 8;
  return std::find_if(from, end, needs_escape);
}

bool is_short_escape(char letter) {
  return letter == '"' || letter == '\\' || single_escape(letter) != letter;
}

void put_quoted(TextSink& out, const std::string& text) {
  const char* from = text.data();
  const char* const end = from + text.size();
  out.put('"');
  for (std::ptrdiff_t size = 0; from != end; from += size) {
    size = std::min(end - from, kPiece);
    if (size == kPiece && is_plain_piece(from)) {
      char* const to = out.room(kPiece);
      std::memcpy(to, from, kPiece);
      out.advance(to + kPiece);
    } else {
      char* const to = out.room(static_cast<std::size_t>(size) * kLongestEscape);
      out.advance(write_escaped(to, from, from + size));
    }
  }
  out.put('"');
}

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
