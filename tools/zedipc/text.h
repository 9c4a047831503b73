// SPDX-License-Identifier: MIT
// Makes bytes from anywhere fit for a terminal or for a reader of JSON.
#pragma once

#include <cstddef>
#include <string>

namespace command {

// The text, with escapes for whatever a terminal might obey or hide: control characters,
// marks that change the direction of writing, and bytes that are not UTF-8.
std::string printable(const std::string& bytes);

// The number of characters of a printable text.
std::size_t width(const std::string& text);

// The text, cut to at most so many characters.
std::string clipped(const std::string& text, std::size_t characters);

// The library's JSON, made valid for every reader: bytes that are not UTF-8 become escapes,
// and numbers that JSON has no text for become null.
std::string valid_json(const std::string& json);

// Compact JSON, spread over indented lines.
std::string indented(const std::string& json);

}  // namespace command
