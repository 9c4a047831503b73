// SPDX-License-Identifier: MIT
// A message that needs no parsing: the payload, and three texts in fields of fixed size,
// together about as long as what surrounds the parameter in the library's messages.
#pragma once

#include <cstring>
#include <string>

namespace bench::floor_subject {

inline constexpr std::size_t kField = 32;
inline constexpr std::size_t kEnvelope = 3 * kField;

inline constexpr char kRegister[] = "register";
inline constexpr char kNotify[] = "notify";
inline constexpr char kToAll[] = "*";

struct Message {
  std::string type;
  std::string to;
  std::string notification;
};

inline std::string write_message(const Message& message, const std::string& payload) {
  std::string text;
  text.reserve(kEnvelope + payload.size());
  for (const std::string* field : {&message.type, &message.to, &message.notification}) {
    text.append(*field).append(kField - field->size(), '\0');
  }
  return text.append(payload);
}

// The texts must be shorter than their fields.
inline Message read_message(const std::string& text) {
  const auto field = [&](std::size_t index) {
    const char* const begin = text.data() + index * kField;
    return std::string(begin, strnlen(begin, kField));
  };
  return {field(0), field(1), field(2)};
}

}  // namespace bench::floor_subject
