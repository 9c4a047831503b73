// SPDX-License-Identifier: MIT
// The kind of a value. No operation tells an integer from a double of the same number,
// but the kind stands at the start of the object and its numbers are compiled into
// applications, so that it can be looked at there.
#pragma once

#include <zedipc/jsobject.h>

#include <cstdint>
#include <cstring>

namespace zedipc::test {

enum class Kind : std::int32_t {
  kNull = 0,
  kBool = 1,
  kString = 2,
  kInteger = 3,
  kDouble = 4,
  kObject = 5,
  kArray = 6
};

inline Kind kind_of(const JSObject& value) {
  Kind kind;
  std::memcpy(&kind, static_cast<const void*>(&value), sizeof kind);
  return kind;
}

// Changes the kind and nothing else: what the value held for that kind is seen again.
inline void set_kind(JSObject& value, Kind kind) {
  std::memcpy(static_cast<void*>(&value), &kind, sizeof kind);
}

}  // namespace zedipc::test
