// SPDX-License-Identifier: MIT
// The tolerant reader. What it lets pass (no commas or one too many, members without a
// value, numbers without digits, "fals", raw control bytes) is behaviour, and so is what
// it leaves in a value when it fails.
#include <cstdlib>
#include <cstring>
#include <tuple>
#include <utility>

#include <zedipc/jsobject.h>

#include "base/decimal.h"
#include "json/escape.h"
#include "json/small_stack.h"

namespace zedipc {

namespace {

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

bool is_white_space(char byte) {
  return byte == ' ' || byte == '\r' || byte == '\n' || byte == '\t';
}

// The bytes that a quoted string just goes on with.
struct OrdinaryBytes {
  bool of[256] = {};
  constexpr OrdinaryBytes() {
    for (bool& ordinary : of) ordinary = true;
    of[0] = of[int{'"'}] = of[int{'\\'}] = false;
  }
};
constexpr OrdinaryBytes kOrdinary;

bool is_ordinary(char byte) { return kOrdinary.of[static_cast<unsigned char>(byte)]; }

// Most strings are short; for a long one the system's function is faster.
const char* skip_ordinary(const char* from) {
  constexpr int kStep = 4;
  for (int step = 0; step < 16; ++step, from += kStep) {
#pragma GCC unroll 4
    for (int i = 0; i < kStep; ++i) {
      if (!is_ordinary(from[i])) return from + i;
    }
  }
  return from + std::strcspn(from, "\"\\");
}

}  // namespace

// One pass over one text. Containers whose end has not been reached wait on a stack of
// our own, so that nesting takes none of the thread's.
struct JSObject::Parser {
  enum Outcome {
    kFailed,   // the text stopped making sense
    kNothing,  // no value begins here, and nothing was consumed
    kDone,     // a whole value was read, and the white space after it
    kOpened,   // a container was begun, and its first child begins here
  };

  const char* at;
  // A "fals" at the very end counts as five bytes although the fifth is the terminator.
  // `at` stays on the terminator then, and this holds the difference.
  int behind_end = 0;
  SmallStack<JSObject*> open;

  explicit Parser(const char* text) : at(text) {}

  void skip_space() {
    while (is_white_space(*at)) ++at;
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
    while (outcome == kOpened || (outcome != kFailed && !open.empty())) {
      JSObject& container = *open.top();
      outcome =
          container.kind() == kArray ? elements(container, outcome) : members(container, outcome);
    }
    return outcome != kFailed;
  }

  // Reads a scalar, or the beginning of a container.
  Outcome begin(JSObject& value) {
    // What a null value still holds from another time stays, and mixes with what is read.
    if (value.kind() != kNull) {
      value.members_.clear();
      value.elements_.clear();
    }
    skip_space();
    switch (*at) {
      case '"':
        return string(value);
      case '{':
        return container(value, kObject, '}');
      case '[':
        return container(value, kArray, ']');
      default:
        return *at == '-' || is_digit(*at) ? number(value) : word(value);
    }
  }

  // Words need no end. An unknown one leaves the value as it is.
  Outcome word(JSObject& value) {
    if (std::strncmp(at, "true", 4) == 0) {
      value = true;
      at += 4;
    } else if (std::strncmp(at, "fals", 4) == 0) {
      value = false;
      at += 4;
      // The last letter is not looked at: whatever stands in its place is skipped.
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

  // One that is cut off leaves the old text under the new kind.
  Outcome string(JSObject& value) {
    value.setKind(kString);
    Quoted text;
    if (!quoted(text)) return kFailed;
    value.string_value_ = text.plain();
    return done();
  }

  // The text between two quotes.
  struct Quoted {
    const char* begin;
    std::size_t size;
    bool escaped;

    [[nodiscard]] std::string plain() const {
      std::string text(begin, size);
      if (escaped) unescape_string(text);
      return text;
    }
  };

  // Moves from one quote past the other; false, without moving, if there is none.
  bool quoted(Quoted& text) {
    const char* const begin = at + 1;
    const char* end = begin;
    bool escaped = false;
    while (*end != '"') {
      if (*end == '\\') {
        escaped = true;
        ++end;
      }
      if (*end == '\0') return false;
      end = skip_ordinary(end + 1);
    }
    text = {begin, static_cast<std::size_t>(end - begin), escaped};
    at = end + 1;
    return true;
  }

  void skip_digits() {
    while (is_digit(*at)) ++at;
  }

  // Digits are not required anywhere: a lone minus is 0.
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
      value = text_to_double(begin, at);
    } else if (integer_length <= 18) {
      value = short_integer(begin);
    } else {
      value = std::strtoll(begin, nullptr, 10);  // beyond 64 bits all read alike
    }
    return done();
  }

  // The whole number from `begin` to `at`, which has too few digits to overflow.
  [[nodiscard]] long long short_integer(const char* begin) const {
    const bool negative = *begin == '-';
    long long result = 0;
    for (const char* digit = begin + (negative ? 1 : 0); digit != at; ++digit) {
      result = result * 10 + (*digit - '0');
    }
    return negative ? -result : result;
  }

  Outcome container(JSObject& value, Kind kind, char end) {
    value.setKind(kind);
    ++at;
    skip_space();
    if (*at == end) return close();
    open.push(&value);
    return kOpened;
  }

  Outcome close() {
    ++at;
    return done();
  }

  // Goes on after a child with this outcome, or begins, until a child is a container or the
  // array ends. Only just before the bracket an element may be missing; it is null.
  Outcome elements(JSObject& array, Outcome outcome) {
    if (outcome == kOpened) outcome = element(array);
    for (;; outcome = element(array)) {
      if (outcome == kFailed || outcome == kOpened) return outcome;
      skip_comma();
      if (*at == ']') break;
      if (outcome == kNothing) return kFailed;
    }
    open.pop();
    return close();
  }

  Outcome element(JSObject& array) { return begin(array.elements_.emplace_back()); }

  // The same for an object, in which any member may have no value.
  Outcome members(JSObject& object, Outcome outcome) {
    if (outcome == kOpened) outcome = member(object);
    for (;; outcome = member(object)) {
      if (outcome == kFailed || outcome == kOpened) return outcome;
      skip_comma();
      if (*at == '}') break;
    }
    open.pop();
    return close();
  }

  Outcome member(JSObject& object) {
    Quoted key;
    if (*at != '"' || !quoted(key)) return kFailed;
    skip_space();
    if (*at != ':') return kFailed;
    ++at;
    return begin(place_for(object.members_, key));
  }

  // Keys in ascending order, as our own writer sends them, belong at the end.
  static JSObject& place_for(std::map<std::string, JSObject>& members, const Quoted& key) {
    const auto place = [&members](auto... text) -> JSObject& {
      return members
          .emplace_hint(members.end(), std::piecewise_construct,
                        std::forward_as_tuple(std::move(text)...), std::tuple<>())
          ->second;
    };
    return key.escaped ? place(key.plain()) : place(key.begin, key.size);
  }
};

int JSObject::parse(const char* text) {
  Parser parser(text);
  if (!parser.run(*this)) return -1;
  return static_cast<int>(parser.at - text) + parser.behind_end;
}

}  // namespace zedipc
