// SPDX-License-Identifier: MIT
// Recognises text in canonical form: the very text that the writer gives for the value that
// it reads as. Nobody has to read such a text and write it again.
#pragma once

namespace zedipc {

// The end of the value that begins at `begin`, if it is in canonical form. What follows it is
// for the caller to check. Null for all other text, and for some that is rare and slow to
// check, such as deep nesting. A terminator stands at `end`.
const char* end_of_canonical(const char* begin, const char* end);

}  // namespace zedipc
