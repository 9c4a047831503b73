// SPDX-License-Identifier: MIT
// The walk over a notification's members.
#include <charconv>
#include <cstddef>
#include <string_view>

#include "json/canonical.h"
#include "json/cursor.h"
#include "protocol/message.h"

namespace zedipc {

namespace {

// A position among the members of a message.
struct MemberCursor : Cursor {
  using Cursor::Cursor;

  // Does not move if another member is there.
  template <std::size_t size>
  bool key(const char (&name)[size]) {
    const char* const begin = at;
    if (skip('"') && skip(name) && skip("\":")) return true;
    at = begin;
    return false;
  }

  // A number without a sign, in canonical form.
  bool number(int& value) {
    const char* const begin = at;
    at = std::from_chars(begin, end, value).ptr;
    const std::ptrdiff_t digits = at - begin;
    return *begin != '-' && digits > 0 && digits <= kIntegerDigits &&
           (*begin != '0' || digits == 1);
  }

  bool string(std::string& value) {
    std::string_view text;
    if (!plain_string(text)) return false;
    value = text;
    return true;
  }
};

}  // namespace

bool Envelope::read(const std::string& text) {
  if (!read_head(text)) return false;
  parameter_end = end_of_canonical(parameter, text.data() + text.size());
  return parameter_end != nullptr && read_tail(text);
}

bool Envelope::read(const std::string& text, JSObject& parameter_value) {
  if (!read_head(text)) return false;
  const int size = parameter_value.parse(parameter);
  // The parser may have counted a terminator as the last letter of a word.
  if (size <= 0 || parameter[size - 1] == '\0') return false;
  parameter_end = parameter + size;
  return read_tail(text);
}

bool Envelope::read_head(const std::string& text) {
  MemberCursor cursor(text.data(), text.data() + text.size());
  const bool read = cursor.skip('{') && cursor.key(kKeyFlags) && cursor.number(flags) &&
                    cursor.skip(',') && cursor.key(kKeyFrom) && cursor.string(from) &&
                    cursor.skip(',') && cursor.key(kKeyNotification) &&
                    cursor.string(notification) && cursor.skip(',') && cursor.key(kKeyParameter);
  parameter = cursor.at;
  return read;
}

bool Envelope::read_tail(const std::string& text) {
  MemberCursor cursor(parameter_end, text.data() + text.size());
  if (!cursor.skip(',')) return false;
  has_reference = cursor.key(kKeyReference);
  if (has_reference && !(cursor.number(reference) && cursor.skip(','))) return false;
  // No key comes after "type".
  return cursor.key(kKeyTo) && cursor.string(to) && cursor.skip(',') && cursor.key(kKeyType) &&
         cursor.skip('"') && cursor.skip(kTypeNotify) && cursor.skip("\"}") &&
         cursor.at == cursor.end;
}

}  // namespace zedipc
