// SPDX-License-Identifier: MIT
// Writes strings with their escapes, eight bytes at a time where none is needed.
#include "json/escape.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <iterator>

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

// The letter after the backslash for a byte that has a short escape, else 0.
char short_escape(char byte) {
  switch (byte) {
    case '\b':
      return 'b';
    case '\t':
      return 't';
    case '\n':
      return 'n';
    case '\f':
      return 'f';
    case '\r':
      return 'r';
    case '"':
    case '\\':
      return byte;
    default:
      return 0;
  }
}

char* write_escape(char* to, char byte) {
  static const char kDigits[] = "0123456789ABCDEF";
  *to++ = '\\';
  if (const char letter = short_escape(byte)) {
    *to++ = letter;
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

}  // namespace

const char* find_escaped(const char* from, const char* end) {
  while (end - from >= 8 && special(load<Word>(from)) == 0) from += 8;
  return std::find_if(from, end, needs_escape);
}

bool is_short_escape(char letter) {
  const auto gives_letter = [letter](char byte) { return short_escape(byte) == letter; };
  static constexpr char kEscaped[] = {'\b', '\t', '\n', '\f', '\r', '"', '\\'};
  return std::any_of(std::begin(kEscaped), std::end(kEscaped), gives_letter);
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

}  // namespace zedipc
