// SPDX-License-Identifier: MIT
// JSON that people type, or have in files.
#pragma once

#include <zedipc/jsobject.h>

#include <string>

namespace command {

// Reads a text that must hold one value and nothing else, as tolerantly as the library
// does. Throws Failure that shows where the text stops making sense. `name` says where the
// text is from, and a `line` other than 0 that it is only that line of it.
zedipc::JSObject read_json(const std::string& text, const std::string& name,
                           unsigned long line = 0);

// All of a file, or of standard input for "-". Throws Failure.
std::string read_file(const std::string& path);

}  // namespace command
