// SPDX-License-Identifier: MIT
#include <cstdlib>
#include <cstring>

#include <zedipc/jsobject.h>

#include "json/small_stack.h"
#include "json/unescape.h"

namespace zedipc {

namespace {

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

bool is_space(char byte) { return byte == ' ' || byte == '\r' || byte == '\n' || byte == '\t'; }

}  // namespace

// One pass over one text. The values whose end has not been reached wait on a
// stack of our own, so that nesting takes no stack of the thread's.
struct JSObject::Parser {
  enum Outcome {
    kFailed,   // the text stopped making sense
    kNothing,  // no value begins here, and nothing was consumed
    kDone,     // a whole value was read, and the white space behind it
    kOpened,   // a container was begun, and its first child begins here
  };

  const char* at;
  // A "fals" at the very end counts five bytes although the fifth is the
  // terminator. `at` stays on the terminator then, and this holds the difference.
  int behind_end = 0;
  SmallStack<JSObject*> open;

  explicit Parser(const char* text) : at(text) {}

  void skip_space() {
    while (is_space(*at)) ++at;
  }

  void skip_comma() {
    skip_space();
    if (*at != ',') return;
    ++at;
    skip_space();
  }

  Outcome done() {
    skip_space();
    return kDone;
  }

  // Reads `root` and all below it; false if the text failed.
  bool run(JSObject& root) {
    Outcome outcome = begin(root);
    for (;;) {
      if (outcome == kFailed) return false;
      if (outcome == kOpened) {
        outcome = begin_first_child(*open.top());
      } else if (open.empty()) {
        return true;
      } else if (open.top()->kind() == kArray) {
        outcome = after_element(*open.top(), outcome);
      } else {
        outcome = after_member(*open.top());
      }
    }
  }

  // Reads a scalar, or the beginning of a container.
  Outcome begin(JSObject& value) {
    if (value.kind() != kNull) {
      value.members_.clear();
      value.elements_.clear();
    }
    skip_space();
    switch (*at) {
      case '"':
        return string(value);
      case '{':
        return object(value);
      case '[':
        return array(value);
      default:
        return *at == '-' || is_digit(*at) ? number(value) : word(value);
    }
  }

  Outcome word(JSObject& value) {
    if (std::strncmp(at, "true", 4) == 0) {
      value = true;
      at += 4;
    } else if (std::strncmp(at, "fals", 4) == 0) {
      value = false;
      at += 4;
      // Whatever stands in the place of the last letter goes with it.
      if (*at == '\0') {
        behind_end = 1;
      } else {
        ++at;
      }
    } else if (std::strncmp(at, "null", 4) == 0) {
      value.setKind(kNull);
      at += 4;
    } else {
      return kNothing;
    }
    return done();
  }

  Outcome string(JSObject& value) {
    value.setKind(kString);
    return quoted(value.string_value_) ? done() : kFailed;
  }

  // Reads from one quote to behind the other. A text without the other leaves
  // `text` as it was.
  bool quoted(std::string& text) {
    const char* const begin = at + 1;
    const char* end = begin;
    bool escaped = false;
    while (*end != '"' && *end != '\0') {
      if (*end == '\\' && end[1] != '\0') {
        escaped = true;
        ++end;
      }
      ++end;
    }
    if (*end == '\0') return false;
    text.assign(begin, end);
    if (escaped) unescape_string(text);
    at = end + 1;
    return true;
  }

  void skip_digits() {
    while (is_digit(*at)) ++at;
  }

  Outcome number(JSObject& value) {
    const char* const begin = at;
    if (*at == '-') ++at;
    skip_digits();
    const auto integer_length = at - begin;
    const bool whole = *at != '.' && *at != 'e' && *at != 'E';
    if (*at == '.') {
      ++at;
      skip_digits();
    }
    if (*at == 'e' || *at == 'E') {
      ++at;
      if (*at == '+' || *at == '-') ++at;
      skip_digits();
    }
    // The system's functions stop where the scan above stopped, or earlier.
    if (!whole) {
      value = std::strtod(begin, nullptr);
    } else if (integer_length <= 9) {
      value = short_integer(begin);
    } else {
      value = std::strtoll(begin, nullptr, 10);
    }
    return done();
  }

  // The whole number from `begin` to `at`, which has too few digits to overflow.
  [[nodiscard]] int short_integer(const char* begin) const {
    const bool negative = *begin == '-';
    int result = 0;
    for (const char* digit = begin + (negative ? 1 : 0); digit != at; ++digit) {
      result = result * 10 + (*digit - '0');
    }
    return negative ? -result : result;
  }

  Outcome array(JSObject& value) {
    value.setKind(kArray);
    ++at;
    skip_space();
    if (*at == ']') return close();
    open.push(&value);
    return kOpened;
  }

  Outcome object(JSObject& value) {
    value.setKind(kObject);
    ++at;
    skip_space();
    if (*at == '}') return close();
    open.push(&value);
    return kOpened;
  }

  Outcome close() {
    ++at;
    return done();
  }

  Outcome begin_first_child(JSObject& container) {
    return container.kind() == kArray ? element(container) : member(container);
  }

  Outcome element(JSObject& array) {
    array.elements_.emplace_back();
    return begin(array.elements_.back());
  }

  Outcome after_element(JSObject& array, Outcome outcome) {
    skip_comma();
    if (*at == ']') {
      open.pop();
      return close();
    }
    return outcome == kNothing ? kFailed : element(array);
  }

  Outcome member(JSObject& object) {
    if (*at != '"') return kFailed;
    std::string key;
    if (!quoted(key)) return kFailed;
    skip_space();
    if (*at != ':') return kFailed;
    ++at;
    return begin(place_for(object.members_, std::move(key)));
  }

  // Our own writer sends keys in ascending order, which needs no search.
  static JSObject& place_for(std::map<std::string, JSObject>& members, std::string key) {
    if (members.empty() || members.rbegin()->first < key) {
      return members.emplace_hint(members.end(), std::move(key), JSObject())->second;
    }
    return members[std::move(key)];
  }

  Outcome after_member(JSObject& object) {
    skip_comma();
    if (*at == '}') {
      open.pop();
      return close();
    }
    return member(object);
  }
};

int JSObject::parse(const char* text) {
  Parser parser(text);
  if (!parser.run(*this)) return -1;
  return static_cast<int>(parser.at - text) + parser.behind_end;
}

}  // namespace zedipc
