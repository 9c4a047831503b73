// SPDX-License-Identifier: MIT
// A string as JSON text.
#pragma once

#include <string>

#include "json/text_sink.h"

namespace zedipc {

// Writes `text` in quotes, with escapes; bytes from 0x7F up go through as they are, so
// that UTF-8 stays UTF-8 and anything else stays what it was.
void put_quoted(TextSink& out, const std::string& text);

}  // namespace zedipc
