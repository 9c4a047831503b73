// SPDX-License-Identifier: MIT
// Whether a text is JSON, to the letter: what the library's own reader, which is tolerant,
// cannot say.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace command::test {

class StrictJson {
 public:
  static bool is_valid(const std::string& text) {
    StrictJson reader(text);
    return reader.value() && reader.at_ == text.size();
  }

 private:
  explicit StrictJson(const std::string& text) : text_(text) {}

  [[nodiscard]] char next() const { return at_ < text_.size() ? text_[at_] : '\0'; }
  bool take(char c) {
    if (next() != c || at_ == text_.size()) return false;
    ++at_;
    return true;
  }
  bool take(const char* word) {
    const std::string expected = word;
    if (text_.compare(at_, expected.size(), expected) != 0) return false;
    at_ += expected.size();
    return true;
  }

  bool value() {
    switch (next()) {
      case '"':
        return string();
      case '{':
        return container('}', true);
      case '[':
        return container(']', false);
      default:
        return take("true") || take("false") || take("null") || number();
    }
  }

  bool container(char end, bool with_keys) {
    ++at_;
    if (take(end)) return true;
    do {
      if (with_keys && !(string() && take(':'))) return false;
      if (!value()) return false;
    } while (take(','));
    return take(end);
  }

  bool digits() {
    const std::size_t begin = at_;
    while (next() >= '0' && next() <= '9') ++at_;
    return at_ > begin;
  }

  bool number() {
    take('-');
    if (!take('0') && !digits()) return false;
    if (take('.') && !digits()) return false;
    if (!take('e') && !take('E')) return true;
    if (!take('+')) take('-');
    return digits();
  }

  bool string() {
    if (!take('"')) return false;
    while (!take('"')) {
      if (!(next() == '\\' ? escape() : character())) return false;
    }
    return true;
  }

  bool escape() {
    ++at_;
    const char kind = next();
    if (kind == '\0' || std::string("\"\\/bfnrtu").find(kind) == std::string::npos) return false;
    ++at_;
    for (int i = 0; kind == 'u' && i < 4; ++i, ++at_) {
      if (next() == '\0' || std::string("0123456789abcdefABCDEF").find(next()) == std::string::npos)
        return false;
    }
    return true;
  }

  // One character in UTF-8 that needs no escape.
  bool character() {
    const auto first = static_cast<unsigned char>(next());
    if (at_ >= text_.size() || first < 0x20) return false;
    ++at_;
    if (first < 0x80) return true;
    const int more = first >= 0xF0 ? 3 : first >= 0xE0 ? 2 : 1;
    std::uint32_t code = first & (0x3FU >> more);
    if (first < 0xC0 || first > 0xF7) return false;
    for (int i = 0; i < more; ++i, ++at_) {
      const auto byte = static_cast<unsigned char>(next());
      if ((byte & 0xC0U) != 0x80U) return false;
      code = code << 6 | (byte & 0x3FU);
    }
    const std::uint32_t least = more == 3 ? 0x10000U : more == 2 ? 0x800U : 0x80U;
    return code >= least && code <= 0x10FFFF && (code < 0xD800 || code > 0xDFFF);
  }

  const std::string& text_;
  std::size_t at_ = 0;
};

}  // namespace command::test
