// SPDX-License-Identifier: MIT
// A string as JSON text, and back.
#pragma once

#include <string>

#include "json/text_sink.h"

namespace zedipc {

// Writes `text` in quotes, with escapes; bytes from 0x7F up go through as they are, so
// that UTF-8 stays UTF-8 and anything else stays what it was.
void put_quoted(TextSink& out, const std::string& text);

// The first byte of a text that does not go through as it is: a control character, a quote
// or a backslash; `end` if there is none.
const char* find_escaped(const char* from, const char* end);

// Whether some byte is written as a backslash and this letter.
bool is_short_escape(char letter);

// Undoes the escapes of `text` in place. Besides JSON's own it knows a byte by
// three octal digits. Nothing is refused: an escape that is unknown or cut off gives
// the byte after the backslash, and a number ends at the first byte that is no digit,
// although all its three or four bytes are taken.
void unescape_string(std::string& text);

}  // namespace zedipc
