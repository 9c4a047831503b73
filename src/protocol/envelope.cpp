// SPDX-License-Identifier: MIT
#include "protocol/envelope.h"

#include <charconv>
#include <cstddef>
#include <cstring>

#include "json/escape.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

// So few digits are within the range of an integer. Session identities have as many.
constexpr std::ptrdiff_t kNumberDigits = 9;

// A place in a text, whose end has a terminator. Every step is false where something else
// stands there.
struct Cursor {
  const char* at;
  const char* const end;

  bool skip(char byte) {
    if (*at != byte) return false;
    ++at;
    return true;
  }

  // A text in quotes, and `next` behind it.
  template <std::size_t size>
  bool skip(const char (&text)[size], char next) {
    if (*at != '"' || std::strncmp(at + 1, text, size - 1) != 0) return false;
    if (at[size] != '"' || at[size + 1] != next) return false;
    at += size + 2;
    return true;
  }

  // A number without a sign, as it is written.
  bool number(int& value) {
    const char* const begin = at;
    at = std::from_chars(begin, end, value).ptr;
    const std::ptrdiff_t digits = at - begin;
    return *begin != '-' && digits > 0 && digits <= kNumberDigits && (*begin != '0' || digits == 1);
  }

  // A string without escapes.
  bool string(std::string& value) {
    if (!skip('"')) return false;
    const char* const begin = at;
    at = find_escaped(at, end);
    value.assign(begin, at);
    return skip('"');
  }
};

}  // namespace

bool Envelope::read_head(const std::string& text) {
  Cursor cursor{text.data(), text.data() + text.size()};
  const bool read = cursor.skip('{') && cursor.skip(kKeyFlags, ':') && cursor.number(flags) &&
                    cursor.skip(',') && cursor.skip(kKeyFrom, ':') && cursor.string(from) &&
                    cursor.skip(',') && cursor.skip(kKeyNotification, ':') &&
                    cursor.string(notification) && cursor.skip(',') &&
                    cursor.skip(kKeyParameter, ':');
  parameter = cursor.at;
  return read;
}

bool Envelope::read_tail(const std::string& text) {
  Cursor cursor{parameter_end, text.data() + text.size()};
  if (cursor.at >= cursor.end || !cursor.skip(',')) return false;
  has_reference = cursor.skip(kKeyReference, ':');
  int reference = 0;
  if (has_reference && !(cursor.number(reference) && cursor.skip(','))) return false;
  return cursor.skip(kKeyTo, ':') && cursor.string(to) && cursor.skip(',') &&
         cursor.skip(kKeyType, ':') && cursor.skip(kTypeNotify, '}') && cursor.at == cursor.end;
}

}  // namespace zedipc
