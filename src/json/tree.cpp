// SPDX-License-Identifier: MIT
// Copying and destroying nested values in bounded stack. Real messages nest a few levels
// deep, and the containers' own recursion is the fastest way through those; deeper ones are
// walked without recursion.
#include <cstring>
#include <iterator>
#include <tuple>

#include <zedipc/jsobject.h>

#include "json/small_stack.h"

namespace zedipc {

namespace {

constexpr int kRecursionLimit = 16;

// The levels of recursion that this thread is in. The model makes it as cheap as a plain
// variable, and costs every process four bytes for each thread.
thread_local int recursion_level __attribute__((tls_model("initial-exec"))) = 0;

}  // namespace

// Counts one level for as long as it lives.
struct JSObject::Depth {
  Depth() { ++recursion_level; }
  ~Depth() { --recursion_level; }
  Depth(const Depth&) = delete;
  Depth& operator=(const Depth&) = delete;

  const bool recurse = recursion_level < kRecursionLimit;
};

struct JSObject::Tree {
  static bool is_leaf(const JSObject& value) {
    return value.members_.empty() && value.elements_.empty();
  }

  static void copy_scalars(JSObject& to, const JSObject& from) {
    to.setKind(from.kind());
    to.bool_value_ = from.bool_value_;
    to.string_value_ = from.string_value_;
    to.double_value_ = from.double_value_;
    to.long_value_ = from.long_value_;
  }

  // Gives `to`, which has no children, copies of all that is below `from`.
  static void copy_children(JSObject& to, const JSObject& from) {
    struct Pair {
      JSObject* to;
      const JSObject* from;
    };
    SmallStack<Pair> nested;
    nested.push({&to, &from});
    const auto copy_child = [&nested](JSObject& target, const JSObject& source) {
      copy_scalars(target, source);
      if (!is_leaf(source)) nested.push({&target, &source});
    };
    while (!nested.empty()) {
      const Pair next = nested.top();
      nested.pop();
      for (const auto& member : next.from->members_) {
        auto& members = next.to->members_;
        const auto place =
            members.emplace_hint(members.end(), std::piecewise_construct,
                                 std::forward_as_tuple(member.first), std::tuple<>());
        copy_child(place->second, member.second);
      }
      next.to->elements_.resize(next.from->elements_.size());
      for (std::size_t i = 0; i < next.from->elements_.size(); ++i) {
        copy_child(next.to->elements_[i], next.from->elements_[i]);
      }
    }
  }

  static JSObject* last_child(JSObject& value) {
    if (!value.elements_.empty()) return &value.elements_.back();
    if (!value.members_.empty()) return &value.members_.rbegin()->second;
    return nullptr;
  }

  static void remove_last_child(JSObject& value) {
    if (!value.elements_.empty()) {
      value.elements_.pop_back();
    } else {
      value.members_.erase(std::prev(value.members_.end()));
    }
  }

  static JSObject* parent(const JSObject& value) {
    JSObject* parent;
    std::memcpy(&parent, &value.double_value_, sizeof(void*));
    return parent;
  }

  static void set_parent(JSObject& value, JSObject* parent) {
    static_assert(sizeof(void*) <= sizeof(double), "a pointer fits the place");
    std::memcpy(&value.double_value_, &parent, sizeof(void*));
  }

  // Destroys everything below `value`, and allocates nothing. Goes down to a last child, removes
  // it, and finds the way back up by pointers that it keeps in the dying values themselves, in the
  // place of their doubles.
  static void clear(JSObject& value) noexcept {
    set_parent(value, nullptr);
    JSObject* current = &value;
    while (current != nullptr) {
      JSObject* const child = last_child(*current);
      if (child == nullptr) {
        current = parent(*current);
      } else if (is_leaf(*child)) {
        remove_last_child(*current);
      } else {
        set_parent(*child, current);
        current = child;
      }
    }
  }
};

JSObject::JSObject(const JSObject& other) : JSObject(other, Depth()) {}

JSObject::JSObject(const JSObject& other, const Depth& depth)
    : kind_(other.kind()),
      bool_value_(other.bool_value_),
      string_value_(other.string_value_),
      double_value_(other.double_value_),
      long_value_(other.long_value_),
      members_(depth.recurse ? std::map<std::string, JSObject>(other.members_)
                             : std::map<std::string, JSObject>()),
      elements_(depth.recurse ? std::vector<JSObject>(other.elements_) : std::vector<JSObject>()) {
  if (!depth.recurse) Tree::copy_children(*this, other);
}

JSObject::~JSObject() {
  if (Tree::is_leaf(*this)) return;
  const Depth depth;
  if (depth.recurse) {
    elements_.clear();
    members_.clear();
  } else {
    Tree::clear(*this);
  }
}

}  // namespace zedipc
