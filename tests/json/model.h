// SPDX-License-Identifier: MIT
// A second, plain way to read and write JSON values, to compare the library with: it
// recurses, copies freely, and knows nothing of the library.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "json/kinds.h"

namespace zedipc::test {

struct Model {
  Kind kind = Kind::kNull;
  bool bool_value = false;
  std::string string_value;
  double double_value = 0;
  std::int32_t long_value = 0;
  std::map<std::string, Model> members;
  std::vector<Model> elements;

  // The offset of the first byte after the value and the white space around it, or -1.
  int parse(const std::string& text);

  // `hidden` may be null.
  [[nodiscard]] std::string dump(bool (*hidden)(const std::string&)) const;
};

}  // namespace zedipc::test
