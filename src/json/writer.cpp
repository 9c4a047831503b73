// SPDX-License-Identifier: MIT
#include <cstdio>

#include <zedipc/jsobject.h>

#include "json/small_stack.h"

namespace zedipc {

namespace {

// The letter behind the backslash for a byte that has a short escape, else 0.
char short_escape(char byte) {
  switch (byte) {
    case '\b':
      return 'b';
    case '\t':
      return 't';
    case '\n':
      return 'n';
    case '\f':
      return 'f';
    case '\r':
      return 'r';
    case '"':
    case '\\':
      return byte;
    default:
      return 0;
  }
}

bool needs_escape(char byte) {
  return static_cast<unsigned char>(byte) < 0x20 || byte == '"' || byte == '\\';
}

// Appends `in` with escapes and without quotes; bytes from 0x7F up go through as
// they are, so that UTF-8 stays UTF-8 and anything else stays what it was.
void escape_string(std::string& out, const std::string& in) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::size_t plain = 0;  // start of the run that has not been appended yet
  for (std::size_t i = 0; i < in.size(); ++i) {
    const char byte = in[i];
    if (!needs_escape(byte)) continue;
    out.append(in, plain, i - plain);
    plain = i + 1;
    out += '\\';
    if (const char letter = short_escape(byte)) {
      out += letter;
    } else {
      out += "u00";
      out += kDigits[static_cast<unsigned char>(byte) >> 4];
      out += kDigits[static_cast<unsigned char>(byte) & 0xF];
    }
  }
  out.append(in, plain, in.size() - plain);
}

void append_quoted(std::string& out, const std::string& text) {
  out += '"';
  escape_string(out, text);
  out += '"';
}

template <std::size_t kSize, typename Number>
void append_number(std::string& out, const char* format, Number number) {
  char text[kSize];
  const int length = std::snprintf(text, sizeof text, format, number);
  out.append(text, static_cast<std::size_t>(length));
}

}  // namespace

// One container that is being written, and how far.
struct JSObject::Writer {
  const JSObject* container;
  std::map<std::string, JSObject>::const_iterator member;
  std::size_t element;

  static bool is_container(const JSObject& value) {
    return value.kind() == kObject || value.kind() == kArray;
  }

  static Writer open(std::string& out, const JSObject& container) {
    out += container.kind() == kObject ? '{' : '[';
    return {&container, container.members_.begin(), 0};
  }

  // Writes up to the next child that has to be written itself. Null: there is none
  // left, and the container has been closed.
  const JSObject* next(std::string& out, Filter filter) {
    return container->kind() == kObject ? next_member(out, filter) : next_element(out);
  }

  const JSObject* next_member(std::string& out, Filter filter) {
    while (member != container->members_.end()) {
      if (member != container->members_.begin()) out += ',';
      const auto& [key, value] = *member;
      ++member;
      append_quoted(out, key);
      out += ':';
      if (filter == nullptr || !filter(key)) return &value;
      out += "\"<<HIDDEN>>\"";
    }
    out += '}';
    return nullptr;
  }

  const JSObject* next_element(std::string& out) {
    if (element == container->elements_.size()) {
      out += ']';
      return nullptr;
    }
    if (element != 0) out += ',';
    return &container->elements_[element++];
  }

  static void scalar(std::string& out, const JSObject& value) {
    switch (value.kind()) {
      case kNull:
        out += "null";
        break;
      case kBool:
        out += value.bool_value_ ? "true" : "false";
        break;
      case kString:
        append_quoted(out, value.string_value_);
        break;
      case kInteger:
        append_number<16>(out, "%ld", static_cast<long>(value.long_value_));
        break;
      case kDouble:
        append_number<64>(out, "%.16g", value.double_value_);
        break;
      default:
        break;
    }
  }
};

void JSObject::dump(std::string& out, Filter filter) const {
  SmallStack<Writer> open;
  const JSObject* value = this;
  for (;;) {
    if (Writer::is_container(*value)) {
      open.push(Writer::open(out, *value));
    } else {
      Writer::scalar(out, *value);
    }
    do {
      if (open.empty()) return;
      value = open.top().next(out, filter);
      if (value == nullptr) open.pop();
    } while (value == nullptr);
  }
}

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
