// SPDX-License-Identifier: MIT
// The patterns of the rule file.
#pragma once

namespace zedipc {

// Whether the pattern matches the whole text. A star stands for any bytes, a
// backslash makes the byte after it literal, and everything else is compared byte
// by byte. A pattern that ends in a single backslash matches nothing. Takes time
// proportional to the product of both lengths at most, and no memory.
bool wildcard_match(const char* pattern, const char* text);

}  // namespace zedipc
