// SPDX-License-Identifier: MIT
// Reading texts in a way that shows what was read and catches a read too far.
#pragma once

#include <zedipc/jsobject.h>

#include <cstring>
#include <memory>
#include <ostream>
#include <string>

namespace zedipc::test {

// Parses from a heap buffer that ends with the terminator, so that a sanitizer sees any
// read beyond it.
inline int parse(JSObject& value, const std::string& text) {
  const std::unique_ptr<char[]> buffer(new char[text.size() + 1]);
  std::memcpy(buffer.get(), text.c_str(), text.size() + 1);
  return value.parse(buffer.get());
}

inline bool hide_none(const std::string&) { return false; }

// What parsing gave, and what the value writes afterwards.
struct Outcome {
  int result;
  std::string text;

  friend bool operator==(const Outcome& a, const Outcome& b) {
    return a.result == b.result && a.text == b.text;
  }
  friend std::ostream& operator<<(std::ostream& out, const Outcome& outcome) {
    return out << outcome.result << " with " << outcome.text;
  }
};

inline Outcome read_into(JSObject& value, const std::string& text) {
  const int result = parse(value, text);
  return {result, value.dump()};
}

inline Outcome read(const std::string& text) {
  JSObject value;
  return read_into(value, text);
}

// The value of a text, for tests in which reading it is not the point.
inline JSObject parsed(const std::string& text) {
  JSObject value;
  parse(value, text);
  return value;
}

}  // namespace zedipc::test
