// SPDX-License-Identifier: MIT
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "json/subject.h"
#include "json/subjects.h"

namespace {

// Documents with the allocator and the precision that it has by default.
struct Rapidjson {
  using Value = rapidjson::Document;
  static void parse(Value& value, const std::string& text) { value.Parse(text.c_str()); }
  static rapidjson::StringBuffer dump(const Value& value) {
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    value.Accept(writer);
    return buffer;
  }
  static std::string plain(const rapidjson::StringBuffer& text) { return text.GetString(); }
};

}  // namespace

void add_rapidjson(const std::vector<Input>& inputs) {
  add_subject<Rapidjson>(inputs, "rapidjson");
}
