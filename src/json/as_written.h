// SPDX-License-Identifier: MIT
// Text that a value's text can stand for without the value.
#pragma once

namespace zedipc {

// The place behind the value that begins at `begin`, if the text up to there is the very
// text that is written for what is read from it, so that whoever would read it only to
// write it again need not; whether what stands behind it may stand there is for the caller to see.
// Null for all other text, and for some that is rare and would take long to tell, such as
// deep nesting. A terminator stands at `end`.
const char* end_as_written(const char* begin, const char* end);

}  // namespace zedipc
