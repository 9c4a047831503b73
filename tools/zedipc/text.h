// SPDX-License-Identifier: MIT
// Bytes from anywhere, made fit for a terminal or for a reader of JSON.
#pragma once

#include <cstddef>
#include <string>

namespace command {

// The text with an escape in the place of whatever a terminal could obey or hide: control
// characters, marks that turn the direction of writing, and bytes that are no UTF-8.
std::string printable(const std::string& bytes);

// The number of characters of a printable text.
std::size_t width(const std::string& text);

// The text, cut to so many characters at the most.
std::string clipped(const std::string& text, std::size_t characters);

// What the library writes as JSON, as everybody can read it: bytes that are no UTF-8
// become escapes, and numbers that JSON has no text for become null.
std::string valid_json(const std::string& json);

// Compact JSON with line ends and indentation.
std::string indented(const std::string& json);

}  // namespace command
