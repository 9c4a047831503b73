// SPDX-License-Identifier: MIT
// zedipc json: what the library makes of a JSON text.
#include "zedipc/commands.h"
#include "zedipc/json_text.h"
#include "zedipc/output.h"
#include "zedipc/text.h"

namespace command {

int json(const JsonOptions& options) {
  const std::string name = options.file == "-" ? "standard input" : printable(options.file);
  const std::string compact = valid_json(read_json(read_file(options.file), name).dump());
  Output().line(options.pretty ? indented(compact) : compact);
  return kDone;
}

}  // namespace command
