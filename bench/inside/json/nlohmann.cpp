// SPDX-License-Identifier: MIT
#include <nlohmann/json.hpp>

#include "json/subject.h"
#include "json/subjects.h"

namespace {

struct Nlohmann {
  using Value = nlohmann::json;
  static void parse(Value& value, const std::string& text) { value = Value::parse(text); }
  static std::string dump(const Value& value) { return value.dump(); }
  static std::string plain(const std::string& text) { return text; }
};

}  // namespace

void add_nlohmann(const std::vector<Input>& inputs) { add_subject<Nlohmann>(inputs, "nlohmann"); }
