// SPDX-License-Identifier: MIT
// Recognises text that is just as we would write it, so that nobody has to read it into a
// value and write it again.
#pragma once

namespace zedipc {

// The end of the value that begins at `begin`, if reading and writing that value would give
// the same text again. What follows it is for the caller to check. Null for all other text,
// and for some that is rare and slow to check, such as deep nesting. A terminator stands at
// `end`.
const char* end_as_written(const char* begin, const char* end);

}  // namespace zedipc
