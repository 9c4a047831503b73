// SPDX-License-Identifier: MIT
// Copying and destroying nested values in bounded stack.
#pragma once

#include <zedipc/jsobject.h>

namespace zedipc {

struct JSObject::Tree {
  // Makes `to`, a fresh value, equal to `from` in every place.
  static void copy(JSObject& to, const JSObject& from);

  // Destroys everything below `value`. Allocates nothing.
  static void clear(JSObject& value) noexcept { clear(value, kRecursion); }

  static bool is_leaf(const JSObject& value) {
    return value.members_.empty() && value.elements_.empty();
  }

 private:
  // Real messages nest a few levels deep, and plain recursion is the fastest way
  // through those; what lies deeper is walked without any.
  static constexpr int kRecursion = 16;

  static void copy_scalars(JSObject& to, const JSObject& from);
  static void clear(JSObject& value, int levels) noexcept;
  static void clear_deep(JSObject& value) noexcept;
  static JSObject* last_child(JSObject& value);
  static void remove_last_child(JSObject& value);
  static JSObject* parent(const JSObject& value);
  static void set_parent(JSObject& value, JSObject* parent);
};

}  // namespace zedipc
