// SPDX-License-Identifier: MIT
// The least that reading and writing cost with the library's layout: a plain struct
// with the same members, and functions that take well-formed text only. No number, key
// or word is looked at twice, and nothing is checked that these texts do not need.
#include <charconv>
#include <cstdint>
#include <cstring>
#include <map>
#include <tuple>

#include "json/subject.h"
#include "json/subjects.h"

namespace {

enum class Kind : std::int32_t { kNull, kBool, kString, kInteger, kDouble, kObject, kArray };

struct Bare {
  Kind kind = Kind::kNull;
  bool truth = false;
  std::string text;
  double number = 0.0;
  std::int32_t integer = 0;
  std::map<std::string, Bare> members;
  std::vector<Bare> elements;
};

struct PlainBytes {
  bool in[256] = {};  // a string, up to a quote or backslash
  constexpr PlainBytes() {
    for (bool& plain : in) plain = true;
    in[int{'"'}] = in[int{'\\'}] = false;
  }
};
constexpr PlainBytes kPlain;

const char* skip_plain(const char* at) {
  while (kPlain.in[static_cast<unsigned char>(*at)]) ++at;
  return at;
}

struct Reader {
  const char* at;
  const char* end;

  void value(Bare& to) {
    switch (*at) {
      case '"':
        to.kind = Kind::kString;
        to.text = string();
        ++at;
        break;
      case '{':
        object(to);
        break;
      case '[':
        array(to);
        break;
      case 't':
      case 'f':
        to.kind = Kind::kBool;
        to.truth = *at == 't';
        at += to.truth ? 4 : 5;
        break;
      case 'n':
        at += 4;
        break;
      default:
        number(to);
    }
  }

  // Up to the closing quote.
  std::string string() {
    const char* const begin = at + 1;
    at = skip_plain(begin);
    std::string text(begin, static_cast<std::size_t>(at - begin));
    while (*at == '\\') {  // only escapes of one letter that stands for itself
      const char* const letter = at + 1;
      at = skip_plain(letter + 1);
      text.append(letter, at);
    }
    return text;
  }

  void number(Bare& to) {
    const auto [integer_end, problem] = std::from_chars(at, end, to.integer);
    if (problem == std::errc() && *integer_end != '.' && *integer_end != 'e') {
      to.kind = Kind::kInteger;
      at = integer_end;
      return;
    }
    to.kind = Kind::kDouble;
    at = std::from_chars(at, end, to.number).ptr;
  }

  void object(Bare& to) {
    to.kind = Kind::kObject;
    if (at[1] == '}') ++at;
    while (*at++ != '}') {
      Bare& member = to.members
                         .emplace_hint(to.members.end(), std::piecewise_construct,
                                       std::forward_as_tuple(string()), std::tuple<>())
                         ->second;
      at += 2;
      value(member);
    }
  }

  void array(Bare& to) {
    to.kind = Kind::kArray;
    if (at[1] == ']') ++at;
    while (*at++ != ']') value(to.elements.emplace_back());
  }
};

// A buffer on the stack takes as much of the text as fits.
struct Writer {
  std::string out;
  char* at = buffer;
  char buffer[1024];

  void flush() {
    out.append(buffer, static_cast<std::size_t>(at - buffer));
    at = buffer;
  }

  void room(std::ptrdiff_t size) {
    if (buffer + sizeof buffer - at < size) flush();
  }

  void put(char byte) {
    room(1);
    *at++ = byte;
  }

  void put(const char* bytes, std::size_t size) {
    room(static_cast<std::ptrdiff_t>(size));
    if (size > sizeof buffer) {
      out.append(bytes, size);
    } else {
      std::memcpy(at, bytes, size);
      at += size;
    }
  }

  template <typename... Format>
  void number(Format... format) {
    room(32);
    at = std::to_chars(at, at + 32, format...).ptr;
  }

  // For strings without control bytes.
  void string(const std::string& text) {
    put('"');
    const char* next = text.data();
    const char* const end = next + text.size();
    while (next != end) {
      const char* const plain = next;
      next = plain_end(plain, end);
      put(plain, static_cast<std::size_t>(next - plain));
      if (next == end) break;
      put('\\');
      put(*next++);
    }
    put('"');
  }

  // Where the first quote or backslash stands, eight bytes at a time.
  static const char* plain_end(const char* from, const char* end) {
    for (; end - from >= 8; from += 8) {
      std::uint64_t word;
      std::memcpy(&word, from, sizeof word);
      if (has(word, '"') || has(word, '\\')) break;
    }
    while (from != end && kPlain.in[static_cast<unsigned char>(*from)]) ++from;
    return from;
  }

  static bool has(std::uint64_t word, char byte) {
    constexpr std::uint64_t kOnes = 0x0101010101010101;
    const std::uint64_t zero = word ^ (kOnes * static_cast<unsigned char>(byte));
    return ((zero - kOnes) & ~zero & (kOnes << 7)) != 0;
  }

  void value(const Bare& from) {
    switch (from.kind) {
      case Kind::kNull:
        put("null", 4);
        break;
      case Kind::kBool:
        from.truth ? put("true", 4) : put("false", 5);
        break;
      case Kind::kString:
        string(from.text);
        break;
      case Kind::kInteger:
        number(from.integer);
        break;
      case Kind::kDouble:
        number(from.number, std::chars_format::general, 16);
        break;
      case Kind::kObject:
        object(from);
        break;
      case Kind::kArray:
        array(from);
    }
  }

  void object(const Bare& from) {
    char separator = '{';
    for (const auto& [key, member] : from.members) {
      put(separator);
      string(key);
      put(':');
      value(member);
      separator = ',';
    }
    if (separator == '{') put('{');
    put('}');
  }

  void array(const Bare& from) {
    char separator = '[';
    for (const Bare& element : from.elements) {
      put(separator);
      value(element);
      separator = ',';
    }
    if (separator == '[') put('[');
    put(']');
  }
};

struct Floor {
  using Value = Bare;
  static void parse(Value& value, const std::string& text) {
    Reader{text.data(), text.data() + text.size()}.value(value);
  }
  static std::string dump(const Value& value) {
    Writer writer;
    writer.value(value);
    writer.flush();
    return std::move(writer.out);
  }
  static std::string plain(const std::string& text) { return text; }
};

}  // namespace

void add_floor(const std::vector<Input>& inputs) { add_subject<Floor>(inputs, "floor"); }
