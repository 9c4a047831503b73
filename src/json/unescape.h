// SPDX-License-Identifier: MIT
// The escapes of a JSON string, undone.
#pragma once

#include <string>

namespace zedipc {

// Undoes the escapes of `text` in place. Besides JSON's own it knows a byte by
// three octal digits. Nothing is refused: an escape that is unknown or cut off gives
// the byte after the backslash, and a number ends at the first byte that is no digit,
// although all its three or four bytes are taken.
void unescape_string(std::string& text);

}  // namespace zedipc
