// SPDX-License-Identifier: MIT
// Matching without recursion: a mismatch goes back to the last star alone.
#include "notifyserver/wildcard.h"

namespace zedipc {

namespace {

// Whether a step of the pattern that is no star matches the byte. A step is one byte
// long, or two with a backslash.
bool matches_byte(const char* pattern, char byte) {
  if (*pattern == '\\') ++pattern;
  return *pattern != '\0' && *pattern == byte;
}

const char* next_step(const char* pattern) { return pattern + (*pattern == '\\' ? 2 : 1); }

}  // namespace

// Only the last star has to be reconsidered: whatever an earlier one could take
// instead, the last one can take too.
bool wildcard_match(const char* pattern, const char* text) {
  const char* star = nullptr;       // the pattern after the last star met
  const char* star_text = nullptr;  // the text after what that star takes
  while (*text != '\0') {
    if (*pattern == '*') {
      while (*pattern == '*') ++pattern;
      if (*pattern == '\0') return true;
      star = pattern;
      star_text = text;
    } else if (*pattern != '\0' && matches_byte(pattern, *text)) {
      pattern = next_step(pattern);
      ++text;
    } else if (star != nullptr) {
      pattern = star;
      text = ++star_text;
    } else {
      return false;
    }
  }
  while (*pattern == '*') ++pattern;
  return *pattern == '\0';
}

}  // namespace zedipc
