// SPDX-License-Identifier: MIT
// Bytes, characters and what terminals do with them.
#include "zedipc/text.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace command {

namespace {

// Text from the network decides how deep a value is; it must not decide how long the lines
// get.
constexpr std::size_t kDeepest = 40;

struct Character {
  std::size_t length;  // in bytes; 0 if no UTF-8 begins here
  std::uint32_t code;
};

bool continues(const std::string& bytes, std::size_t at) {
  return at < bytes.size() && (static_cast<unsigned char>(bytes[at]) & 0xC0U) == 0x80U;
}

bool is_surrogate(std::uint32_t code) { return code >= 0xD800 && code <= 0xDFFF; }

// The character at `at`; none for overlong forms and what lies beyond Unicode. Each half of
// a surrogate pair counts as one: that is how the library keeps what was escaped so.
Character character_at(const std::string& bytes, std::size_t at) {
  const auto first = static_cast<unsigned char>(bytes[at]);
  if (first < 0x80) return {1, first};
  const std::size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
  if (first < 0xC2 || first > 0xF4) return {0, 0};
  std::uint32_t code = first & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    if (!continues(bytes, at + i)) return {0, 0};
    code = code << 6 | (static_cast<unsigned char>(bytes[at + i]) & 0x3FU);
  }
  const bool overlong = (length == 3 && code < 0x800) || (length == 4 && code < 0x10000);
  if (overlong || code > 0x10FFFF) return {0, 0};
  return {length, code};
}

bool is_harmful(std::uint32_t code) {
  return code < 0x20 || is_surrogate(code) || (code >= 0x7F && code <= 0x9F) || code == 0xAD ||
         code == 0x61C || (code >= 0x200B && code <= 0x200F) ||
         (code >= 0x2028 && code <= 0x202E) || (code >= 0x2060 && code <= 0x206F) ||
         code == 0xFEFF || (code >= 0xFFF9 && code <= 0xFFFB) ||
         (code >= 0xE0000 && code <= 0xE0FFF);
}

std::string hexadecimal(const char* format, std::uint32_t value) {
  char text[16];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

std::string escape(std::uint32_t code) {
  if (code == '\n') return "\\n";
  if (code == '\r') return "\\r";
  if (code == '\t') return "\\t";
  return hexadecimal(code > 0xFFFF ? "\\U%08x" : "\\u%04x", code);
}

// Outside strings the library writes only what JSON has, and the infinities and NaN.
std::size_t length_of_no_number(const std::string& json, std::size_t at) {
  const std::size_t sign = json[at] == '-' ? 1 : 0;
  for (const char* word : {"inf", "nan"}) {
    if (json.compare(at + sign, 3, word) == 0) return sign + 3;
  }
  return 0;
}

}  // namespace

std::string printable(const std::string& bytes) {
  std::string out;
  for (std::size_t at = 0; at < bytes.size();) {
    const Character c = character_at(bytes, at);
    if (c.length == 0) {
      out += hexadecimal("\\x%02x", static_cast<unsigned char>(bytes[at]));
    } else if (is_harmful(c.code)) {
      out += escape(c.code);
    } else {
      out.append(bytes, at, c.length);
    }
    at += c.length == 0 ? 1 : c.length;
  }
  return out;
}

std::size_t width(const std::string& text) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < text.size(); ++at) count += continues(text, at) ? 0 : 1;
  return count;
}

std::string clipped(const std::string& text, std::size_t characters) {
  std::size_t count = 0;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (!continues(text, at) && count++ == characters) return text.substr(0, at);
  }
  return text;
}

std::string valid_json(const std::string& json) {
  std::string out;
  bool in_string = false;
  for (std::size_t at = 0; at < json.size();) {
    if (!in_string) {
      if (const std::size_t length = length_of_no_number(json, at)) {
        out += "null";
        at += length;
        continue;
      }
    }
    const Character c = character_at(json, at);
    if (c.length == 0) {
      out += hexadecimal("\\u%04x", static_cast<unsigned char>(json[at++]));
      continue;
    }
    if (is_surrogate(c.code)) {
      out += escape(c.code);
      at += c.length;
      continue;
    }
    if (c.code == '\\') {  // and what it escapes, which may be a quote
      out.append(json, at, 2);
      at += 2;
      continue;
    }
    if (c.code == '"') in_string = !in_string;
    out.append(json, at, c.length);
    at += c.length;
  }
  return out;
}

std::string indented(const std::string& json) {
  std::string out;
  std::size_t depth = 0;
  bool in_string = false;
  const auto new_line = [&] { out += '\n' + std::string(2 * std::min(depth, kDeepest), ' '); };
  for (std::size_t at = 0; at < json.size(); ++at) {
    const char c = json[at];
    if (c == '"') in_string = !in_string;
    const bool opens = !in_string && (c == '{' || c == '[');
    const bool closes = !in_string && (c == '}' || c == ']');
    const bool empty = closes && at > 0 && (json[at - 1] == '{' || json[at - 1] == '[');
    if (closes) --depth;
    if (closes && !empty) new_line();
    out += c;
    if (in_string && c == '\\') out += json[++at];
    if (opens) ++depth;
    const bool next_closes = at + 1 < json.size() && (json[at + 1] == '}' || json[at + 1] == ']');
    if ((opens && !next_closes) || (!in_string && c == ',')) new_line();
    if (!in_string && c == ':') out += ' ';
  }
  return out;
}

}  // namespace command
