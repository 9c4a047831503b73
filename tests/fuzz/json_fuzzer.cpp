// SPDX-License-Identifier: MIT
// Reading, writing, copying and destroying values.
//
// An input is one text, or several with a zero byte between them, which are read into
// the same value. An input that begins with a star is what follows the star, over and
// over: a deep text.
#include <zedipc/jsobject.h>

#include <string>
#include <utility>

#include "fuzz/harness.h"
#include "json/canonical.h"
#include "json/model.h"
#include "json/stack.h"
#include "json/texts.h"

using zedipc::end_of_canonical;
using zedipc::JSObject;
using namespace zedipc::test;

namespace {

constexpr std::size_t kSmallStack = 128 * 1024;
constexpr std::size_t kDeepText = 4096;
constexpr std::size_t kModelText = 4096;  // a text that the model, which recurses, may get

bool hide_some(const std::string& key) { return key.size() % 2 == 1; }

// Whether an infinity stands in the text that a value wrote, which then is not JSON.
bool has_infinity(const std::string& written) {
  bool in_string = false;
  for (std::size_t i = 0; i < written.size(); ++i) {
    if (written[i] == '"') in_string = !in_string;
    if (in_string && written[i] == '\\') ++i;
    if (!in_string && written.compare(i, 3, "inf") == 0) return true;
  }
  return false;
}

void check_result(int result, const std::string& text) {
  const int size = static_cast<int>(text.size());
  const bool cut_word = text.size() >= 4 && text.compare(text.size() - 4, 4, "fals") == 0;
  require(result >= -1 && result <= size + (cut_word ? 1 : 0), "the result lies in the text");
}

void check_written(const std::string& written) {
  if (has_infinity(written)) return;
  JSObject back;
  require(parse(back, written) == static_cast<int>(written.size()),
          "what was written is read to its end");
  const std::string second = back.dump();
  // A double may have become an integer, and -0 thus 0.
  if (second != written) {
    require(written.find("-0") != std::string::npos, "what was written is written again");
  }
  require(parsed(second).dump() == second, "what was written twice does not change");
}

void check_canonical(const std::string& text) {
  const char* const end = end_of_canonical(text.c_str(), text.c_str() + text.size());
  if (end == nullptr) return;
  const std::string value(text.c_str(), end);
  require(parsed(value).dump() == value, "canonical text is what is written");
}

void check_copies(const JSObject& value, const std::string& written) {
  JSObject copy(value);
  require(copy.dump() == written, "a copy is like the original");
  JSObject assigned = parsed(R"({"a":[1,{"b":"c"}]})");
  assigned = copy;
  require(assigned.dump() == written, "what was assigned is like the original");
  const JSObject moved(std::move(copy));
  require(moved.dump() == written, "what was moved is like the original");
  assigned = 7;
  assigned("a")[1] = value;
  require(assigned("a")[1].dump() == written, "what was put into another is like the original");
}

// The results of the conversions have limits that are tested elsewhere; here they are only
// not to harm.
void convert(const JSObject& value) {
  value.getInt();
  value.getInt64();
  value.getNumber();
  value.getBool();
  value.getString();
}

void check_texts(Input& input) {
  JSObject value;
  Model model;
  do {
    const std::string text = input.up_to('\0');
    const int result = parse(value, text);
    check_result(result, text);
    check_canonical(text);
    const std::string written = value.dump();
    if (text.size() <= kModelText) {
      require(result == model.parse(text), "the model reads as much");
      require(written == model.dump(nullptr), "the model reads the same");
      require(value.logdump(hide_some) == model.dump(hide_some), "the model hides the same");
    } else {
      model = Model();
      value = JSObject();
    }
    check_written(written);
    check_copies(value, value.dump());
    convert(value);
  } while (!input.empty());
}

void check_deep_text(const std::string& unit) {
  std::string text;
  while (!unit.empty() && text.size() < kDeepText) text += unit;
  run_on_stack(kSmallStack, [&] {
    JSObject value;
    const int result = parse(value, text);
    check_result(result, text.c_str());
    const std::string written = value.dump();
    check_written(written);
    check_copies(value, written);
    require(parse(value, text) == result && value.dump() == written,
            "what is read over a value replaces it");
  });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  if (size > 0 && data[0] == '*') {
    input.byte();
    check_deep_text(input.rest());
  } else {
    check_texts(input);
  }
  return 0;
}
