// SPDX-License-Identifier: MIT
// Copying and destroying nested values in bounded stack. Real messages nest a few
// levels deep, and the containers' own recursion is the fastest way through those;
// deeper ones are walked without recursion.
#pragma once

#include <zedipc/jsobject.h>

namespace zedipc {

struct JSObject::Tree {
  // Gives `to`, which has no children, copies of all that is below `from`.
  static void copy_children(JSObject& to, const JSObject& from);

  // Destroys everything below `value`. Allocates nothing.
  static void clear(JSObject& value) noexcept;

  static bool is_leaf(const JSObject& value) {
    return value.members_.empty() && value.elements_.empty();
  }

 private:
  static void copy_scalars(JSObject& to, const JSObject& from);
  static JSObject* last_child(JSObject& value);
  static void remove_last_child(JSObject& value);
  static JSObject* parent(const JSObject& value);
  static void set_parent(JSObject& value, JSObject* parent);
};

}  // namespace zedipc
