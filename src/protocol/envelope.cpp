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

// Null if nothing can be read.
const char* read_value(const char* begin, JSObject& value) {
  const int size = value.parse(begin);
  // The parser may have counted a terminator as the last letter of a word.
  return size <= 0 || begin[size - 1] == '\0' ? nullptr : begin + size;
}

}  // namespace

bool Envelope::read(const std::string& text, JSObject* parameter_value) {
  MemberCursor cursor(text.data(), text.data() + text.size());
  if (!(cursor.skip(R"({"flags":)") && cursor.number(flags) && cursor.skip(R"(,"from":)") &&
        cursor.string(from) && cursor.skip(R"(,"notification":)") && cursor.string(notification) &&
        cursor.skip(R"(,"parameter":)"))) {
    return false;
  }
  parameter = cursor.at;
  parameter_end = parameter_value == nullptr ? end_of_canonical(parameter, cursor.end)
                                             : read_value(parameter, *parameter_value);
  if (parameter_end == nullptr) return false;
  cursor.at = parameter_end;
  has_reference = cursor.skip(R"(,"reference":)");
  if (has_reference && !cursor.number(reference)) return false;
  return cursor.skip(R"(,"to":)") && cursor.string(to) && cursor.skip(R"(,"type":"notify"})") &&
         cursor.at == cursor.end;
}

}  // namespace zedipc
