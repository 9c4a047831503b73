// SPDX-License-Identifier: MIT
#include <json/reader.h>
#include <json/value.h>
#include <json/writer.h>

#include <memory>
#include <sstream>

#include "json/subject.h"
#include "json/subjects.h"

namespace {

Json::StreamWriter* make_writer() {
  Json::StreamWriterBuilder builder;
  builder["indentation"] = "";
  return builder.newStreamWriter();
}

// Reader and writer are made once, as by users who care for speed.
struct Jsoncpp {
  using Value = Json::Value;
  static void parse(Value& value, const std::string& text) {
    static const std::unique_ptr<Json::CharReader> reader(
        Json::CharReaderBuilder().newCharReader());
    reader->parse(text.data(), text.data() + text.size(), &value, nullptr);
  }
  static std::string dump(const Value& value) {
    static const std::unique_ptr<Json::StreamWriter> writer(make_writer());
    std::ostringstream out;
    writer->write(value, &out);
    return out.str();
  }
  static std::string plain(const std::string& text) { return text; }
};

}  // namespace

void add_jsoncpp(const std::vector<Input>& inputs) { add_subject<Jsoncpp>(inputs, "jsoncpp"); }
