// SPDX-License-Identifier: MIT
// The escapes of a JSON string, undone.
#pragma once

#include <string>

namespace zedipc {

// Undoes the escapes of `text` in place. Besides JSON's own it knows a byte by
// three octal digits. Nothing is refused: an escape that is cut off or unknown
// gives the byte behind the backslash, digits that are none end the number.
void unescape_string(std::string& text);

}  // namespace zedipc
