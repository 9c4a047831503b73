// SPDX-License-Identifier: MIT
#include <zedipc/jsobject.h>

#include "json/subject.h"
#include "json/subjects.h"

namespace {

struct Zedipc {
  using Value = zedipc::JSObject;
  static void parse(Value& value, const std::string& text) { value.parse(text.c_str()); }
  static std::string dump(const Value& value) { return value.dump(); }
  static std::string plain(const std::string& text) { return text; }
};

}  // namespace

void add_zedipc(const std::vector<Input>& inputs) { add_subject<Zedipc>(inputs, "zedipc"); }
