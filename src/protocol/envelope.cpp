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
  const bool read = cursor.skip(R"({"flags":)") && cursor.number(flags) &&
                    cursor.skip(R"(,"from":)") && cursor.string(from) &&
                    cursor.skip(R"(,"notification":)") && cursor.string(notification) &&
                    cursor.skip(R"(,"parameter":)");
  parameter = cursor.at;
  return read;
}

bool Envelope::read_tail(const std::string& text) {
  MemberCursor cursor(parameter_end, text.data() + text.size());
  has_reference = cursor.skip(R"(,"reference":)");
  if (has_reference && !cursor.number(reference)) return false;
  return cursor.skip(R"(,"to":)") && cursor.string(to) && cursor.skip(R"(,"type":"notify"})") &&
         cursor.at == cursor.end;
}

}  // namespace zedipc
