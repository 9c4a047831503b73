// SPDX-License-Identifier: MIT
// Writes a value as compact text, members in the order of their keys.
#include <charconv>

#include <zedipc/jsobject.h>

#include "base/decimal.h"
#include "json/escape.h"
#include "json/small_stack.h"
#include "json/text_sink.h"

namespace zedipc {

// One walk over one value. Containers that are not closed yet wait on a stack of our own,
// so that nesting takes none of the thread's.
struct JSObject::Writer {
  // A container, and how far it has been written.
  struct Open {
    const JSObject* container;
    std::map<std::string, JSObject>::const_iterator member;
    std::size_t element;
  };

  TextSink out;
  const Filter filter;
  SmallStack<Open> open;

  Writer(std::string& to, Filter chosen) : out(to), filter(chosen) {}

  void run(const JSObject& root) {
    begin(root);
    while (!open.empty()) {
      Open& last = open.top();
      const JSObject* const child =
          last.container->kind() == kObject ? members(last) : elements(last);
      if (child == nullptr) {
        open.pop();
      } else {
        begin(*child);
      }
    }
    out.flush();
  }

  static bool is_container(const JSObject& value) {
    return value.kind() == kObject || value.kind() == kArray;
  }

  // Writes a scalar, or the beginning of a container.
  void begin(const JSObject& value) {
    if (!is_container(value)) {
      scalar(value);
      return;
    }
    out.put(value.kind() == kObject ? '{' : '[');
    open.push({&value, value.members_.begin(), 0});
  }

  // Writes up to the next child that is a container. Null if there is none left: the object
  // is closed then.
  const JSObject* members(Open& object) {
    const auto& all = object.container->members_;
    while (object.member != all.end()) {
      if (object.member != all.begin()) out.put(',');
      const auto& [key, value] = *object.member;
      ++object.member;
      put_quoted(out, key);
      out.put(':');
      if (filter != nullptr && hidden(key)) {
        out.put("\"<<HIDDEN>>\"");
      } else if (is_container(value)) {
        return &value;
      } else {
        scalar(value);
      }
    }
    out.put('}');
    return nullptr;
  }

  const JSObject* elements(Open& array) {
    const auto& all = array.container->elements_;
    while (array.element != all.size()) {
      if (array.element != 0) out.put(',');
      const JSObject& value = all[array.element++];
      if (is_container(value)) return &value;
      scalar(value);
    }
    out.put(']');
    return nullptr;
  }

  // Whenever the application's code runs, the string is complete up to here.
  bool hidden(const std::string& key) {
    out.flush();
    return filter(key);
  }

  void integer(std::int32_t number) {
    constexpr std::size_t kLongest = 11;  // the lowest one, with its sign
    char* const to = out.room(kLongest);
    out.advance(std::to_chars(to, to + kLongest, number).ptr);
  }

  void scalar(const JSObject& value) {
    switch (value.kind()) {
      case kNull:
        out.put("null");
        break;
      case kBool:
        value.bool_value_ ? out.put("true") : out.put("false");
        break;
      case kString:
        put_quoted(out, value.string_value_);
        break;
      case kInteger:
        integer(value.long_value_);
        break;
      case kDouble:
        out.advance(double_to_text(out.room(kDoubleText), value.double_value_));
        break;
      default:
        break;
    }
  }
};

void JSObject::dump(std::string& out, Filter filter) const { Writer(out, filter).run(*this); }

void JSObject::dump(std::string& out) const { dump(out, nullptr); }

std::string JSObject::dump() const {
  std::string out;
  dump(out, nullptr);
  return out;
}

std::string JSObject::logdump(Filter filter) const {
  std::string out;
  dump(out, filter);
  return out;
}

}  // namespace zedipc
