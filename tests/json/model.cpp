// SPDX-License-Identifier: MIT
#include "json/model.h"

#include <cstdio>
#include <cstdlib>

namespace zedipc::test {

namespace {

constexpr int kFailed = -1;

class Reader {
 public:
  explicit Reader(const std::string& text) : text_(text) {}

  // How many bytes from `from` on belong to the value, or -1.
  int value(Model& model, std::size_t from) {
    if (model.kind != Kind::kNull) {
      model.members.clear();
      model.elements.clear();
    }
    std::size_t at = after_space(from);
    bool ok = true;
    if (byte(at) == '"') {
      ok = string(model, at);
    } else if (byte(at) == '-' || is_digit(byte(at))) {
      number(model, at);
    } else if (byte(at) == '{') {
      ok = object(model, at);
    } else if (byte(at) == '[') {
      ok = array(model, at);
    } else if (!word(model, at)) {
      return static_cast<int>(at - from);
    }
    return ok ? static_cast<int>(after_space(at) - from) : kFailed;
  }

 private:
  // Everything after the text is its terminator.
  [[nodiscard]] char byte(std::size_t at) const { return at < text_.size() ? text_[at] : '\0'; }

  static bool is_digit(char c) { return c >= '0' && c <= '9'; }

  [[nodiscard]] std::size_t after_space(std::size_t at) const {
    while (byte(at) == ' ' || byte(at) == '\t' || byte(at) == '\r' || byte(at) == '\n') ++at;
    return at;
  }

  [[nodiscard]] std::size_t after_comma(std::size_t at) const {
    at = after_space(at);
    return byte(at) == ',' ? after_space(at + 1) : at;
  }

  [[nodiscard]] bool follows(std::size_t at, const std::string& word) const {
    return at < text_.size() && text_.compare(at, word.size(), word) == 0;
  }

  bool word(Model& model, std::size_t& at) const {
    if (follows(at, "true")) {
      model.kind = Kind::kBool;
      model.bool_value = true;
      at += 4;
    } else if (follows(at, "fals")) {
      model.kind = Kind::kBool;
      model.bool_value = false;
      at += 5;
    } else if (follows(at, "null")) {
      model.kind = Kind::kNull;
      at += 4;
    } else {
      return false;
    }
    return true;
  }

  // From the quote at `at` to after the closing one.
  bool quoted(std::string& result, std::size_t& at) const {
    std::string raw;
    std::size_t i = at + 1;
    while (byte(i) != '"') {
      if (byte(i) == '\0') return false;
      if (byte(i) == '\\' && byte(i + 1) != '\0') raw += byte(i++);
      raw += byte(i++);
    }
    result = unescaped(raw);
    at = i + 1;
    return true;
  }

  static std::string unescaped(const std::string& raw) {
    const std::string letters = "bfnrt";
    const std::string controls = "\b\f\n\r\t";
    std::string result;
    for (std::size_t i = 0; i < raw.size();) {
      if (raw[i] != '\\' || i + 1 == raw.size()) {
        result += raw[i++];
        continue;
      }
      const char c = raw[i + 1];
      if (c >= '0' && c <= '7' && i + 3 < raw.size()) {
        const unsigned long v = std::strtoul(raw.substr(i + 1, 3).c_str(), nullptr, 8);
        result += static_cast<char>(v & 0xFF);
        i += 4;
      } else if (c == 'u' && i + 5 < raw.size()) {
        result += utf8(std::strtoul(raw.substr(i + 2, 4).c_str(), nullptr, 16));
        i += 6;
      } else {
        const std::size_t letter = letters.find(c);
        result += letter == std::string::npos ? c : controls[letter];
        i += 2;
      }
    }
    return result;
  }

  static std::string utf8(unsigned long v) {
    const auto put = [](unsigned long bits) {
      return std::string(1, static_cast<char>(bits & 0xFF));
    };
    if (v < 0x80) return put(v);
    if (v < 0x800) return put(0xC0 | v >> 6) + put(0x80 | (v & 0x3F));
    return put(0xE0 | v >> 12) + put(0x80 | (v >> 6 & 0x3F)) + put(0x80 | (v & 0x3F));
  }

  bool string(Model& model, std::size_t& at) const {
    model.kind = Kind::kString;
    return quoted(model.string_value, at);
  }

  void number(Model& model, std::size_t& at) const {
    const std::size_t begin = at;
    model.kind = Kind::kInteger;
    if (byte(at) == '-') ++at;
    while (is_digit(byte(at))) ++at;
    if (byte(at) == '.') {
      model.kind = Kind::kDouble;
      ++at;
      while (is_digit(byte(at))) ++at;
    }
    if (byte(at) == 'e' || byte(at) == 'E') {
      model.kind = Kind::kDouble;
      ++at;
      if (byte(at) == '+' || byte(at) == '-') ++at;
      while (is_digit(byte(at))) ++at;
    }
    const std::string digits = text_.substr(begin, at - begin);
    if (model.kind == Kind::kDouble) {
      model.double_value = std::strtod(digits.c_str(), nullptr);
      return;
    }
    const long long whole = std::strtoll(digits.c_str(), nullptr, 10);
    if (whole >= -2147483648LL && whole <= 2147483647LL) {
      model.long_value = static_cast<std::int32_t>(whole);
    } else {
      model.kind = Kind::kDouble;
      model.double_value = static_cast<double>(whole);
    }
  }

  bool array(Model& model, std::size_t& at) {
    model.kind = Kind::kArray;
    at = after_space(at + 1);
    while (byte(at) != ']') {
      model.elements.emplace_back();
      const int length = value(model.elements.back(), at);
      if (length == kFailed) return false;
      at = after_comma(at + static_cast<std::size_t>(length));
      if (length == 0 && byte(at) != ']') return false;
    }
    ++at;
    return true;
  }

  bool object(Model& model, std::size_t& at) {
    model.kind = Kind::kObject;
    at = after_space(at + 1);
    while (byte(at) != '}') {
      std::string key;
      if (byte(at) != '"' || !quoted(key, at)) return false;
      at = after_space(at);
      if (byte(at) != ':') return false;
      ++at;
      const int length = value(model.members[key], at);
      if (length == kFailed) return false;
      at = after_comma(at + static_cast<std::size_t>(length));
    }
    ++at;
    return true;
  }

  const std::string& text_;
};

std::string quote(const std::string& text) {
  std::string result = "\"";
  for (const char c : text) {
    const auto code = static_cast<unsigned>(static_cast<unsigned char>(c));
    const std::size_t special = std::string("\b\t\n\f\r\"\\").find(c);
    if (special != std::string::npos) {
      result += '\\';
      result += "btnfr\"\\"[special];
    } else if (code < 0x20) {
      char escape[8];
      std::snprintf(escape, sizeof escape, "\\u%04X", code);
      result += escape;
    } else {
      result += c;
    }
  }
  return result + '"';
}

std::string formatted(double number) {
  char text[64];
  std::snprintf(text, sizeof text, "%.16g", number);
  return text;
}

}  // namespace

int Model::parse(const std::string& text) { return Reader(text).value(*this, 0); }

std::string Model::dump(bool (*hidden)(const std::string&)) const {
  std::string list;
  switch (kind) {
    case Kind::kNull:
      return "null";
    case Kind::kBool:
      return bool_value ? "true" : "false";
    case Kind::kString:
      return quote(string_value);
    case Kind::kInteger:
      return std::to_string(long_value);
    case Kind::kDouble:
      return formatted(double_value);
    case Kind::kObject:
      for (const auto& [key, value] : members) {
        const bool hide = hidden != nullptr && hidden(key);
        list += (list.empty() ? "" : ",") + quote(key) + ":" +
                (hide ? "\"<<HIDDEN>>\"" : value.dump(hidden));
      }
      return "{" + list + "}";
    case Kind::kArray:
      for (const Model& value : elements) {
        list += (list.empty() ? "" : ",") + value.dump(hidden);
      }
      return "[" + list + "]";
  }
  return "";
}

}  // namespace zedipc::test
