// SPDX-License-Identifier: MIT
// The library against a second reader and writer, over many texts.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <cstddef>
#include <cstring>
#include <string>

#include "json/kinds.h"
#include "json/model.h"
#include "json/text_generator.h"
#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

constexpr int kTexts = 20000;

bool same_bits(double a, double b) { return std::memcmp(&a, &b, sizeof a) == 0; }

// Where the two differ, or nothing. Members and elements that only one of them has show
// in their texts.
std::string difference(const JSObject& value, const Model& model, const std::string& path) {
  if (kind_of(value) != model.kind) return path + ": kind";
  switch (model.kind) {
    case Kind::kNull:
      return "";
    case Kind::kBool:
      return value.getBool() == model.bool_value ? "" : path + ": bool";
    case Kind::kString:
      return value.getString() == model.string_value ? "" : path + ": string";
    case Kind::kInteger:
      return value.getInt() == model.long_value ? "" : path + ": integer";
    case Kind::kDouble:
      return same_bits(value.getNumber(), model.double_value) ? "" : path + ": double";
    case Kind::kObject:
      for (const auto& [key, member] : model.members) {
        if (!value.exists(key)) return path + ": no member " + key;
        const std::string found = difference(value(key), member, path + "/" + key);
        if (!found.empty()) return found;
      }
      return "";
    case Kind::kArray:
      for (std::size_t i = 0; i < model.elements.size(); ++i) {
        const std::string found = difference(value[static_cast<int>(i)], model.elements[i],
                                             path + "/" + std::to_string(i));
        if (!found.empty()) return found;
      }
      return "";
  }
  return path + ": kind out of range";
}

bool hide_some(const std::string& key) { return key == "a" || key.size() == 3; }

// Reads `text` into both and compares all there is to see.
void expect_agreement(JSObject& value, Model& model, const std::string& text, int& result) {
  SCOPED_TRACE("text: " + text);
  result = parse(value, text);
  ASSERT_EQ(result, model.parse(text));
  ASSERT_EQ(value.dump(), model.dump(nullptr));
  ASSERT_EQ(difference(value, model, ""), "");
  ASSERT_EQ(value.logdump(hide_some), model.dump(hide_some));
}

}  // namespace

TEST(Model, AgreesOnTolerableTexts) {
  TextGenerator generator(20210430);
  int whole = 0;
  for (int i = 0; i < kTexts; ++i) {
    JSObject value;
    Model model;
    int result = 0;
    const std::string text = generator.text();
    ASSERT_NO_FATAL_FAILURE(expect_agreement(value, model, text, result));
    if (result > 0) ++whole;
  }
  EXPECT_GT(whole, kTexts / 2);  // or the texts are not what they should be
}

TEST(Model, AgreesOnDamagedTexts) {
  TextGenerator generator(94201);
  int failed = 0;
  int nested_failures = 0;
  for (int i = 0; i < kTexts; ++i) {
    JSObject value;
    Model model;
    int result = 0;
    const std::string text = generator.damaged_text();
    ASSERT_NO_FATAL_FAILURE(expect_agreement(value, model, text, result));
    if (result == -1) ++failed;
    if (result == -1 && value.dump().size() > 20) ++nested_failures;
  }
  EXPECT_GT(failed, kTexts / 10);
  EXPECT_LT(failed, kTexts * 9 / 10);
  EXPECT_GT(nested_failures, kTexts / 50);
}

TEST(Model, AgreesOnTextsReadIntoAValueThatIsInUse) {
  TextGenerator generator(1180);
  JSObject value;
  Model model;
  for (int i = 0; i < kTexts; ++i) {
    int result = 0;
    const std::string text = generator.damaged_text();
    ASSERT_NO_FATAL_FAILURE(expect_agreement(value, model, text, result));
  }
}

TEST(Model, AgreesOnEachBeginningOfAText) {
  TextGenerator generator(31415);
  for (int i = 0; i < 200; ++i) {
    const std::string text = generator.text();
    for (std::size_t length = 0; length <= text.size(); ++length) {
      JSObject value;
      Model model;
      int result = 0;
      ASSERT_NO_FATAL_FAILURE(expect_agreement(value, model, text.substr(0, length), result));
    }
  }
}

TEST(Model, AgreesOnAllShortTextsOfStructuralBytes) {
  const std::string bytes = "[]{},:\" 1-\\f";
  const std::string word = "fals";  // stands for the f, so that the short word is met too
  for (int number = 0; number < 12 * 12 * 12 * 12 * 12; ++number) {
    std::string text;
    for (int rest = number; rest != 0; rest /= 12) {
      const char byte = bytes[static_cast<std::size_t>(rest % 12)];
      text += byte == 'f' ? word : std::string(1, byte);
    }
    JSObject value;
    Model model;
    const int result = parse(value, text);
    if (result != model.parse(text) || value.dump() != model.dump(nullptr)) {
      FAIL() << text << " gives " << result << " with " << value.dump();
    }
  }
}

TEST(Model, AgreesOnWhatTheLibraryWroteOfWhatItRead) {
  TextGenerator generator(2718);
  for (int i = 0; i < kTexts; ++i) {
    const std::string written = parsed(generator.damaged_text()).dump();
    JSObject value;
    Model model;
    int result = 0;
    ASSERT_NO_FATAL_FAILURE(expect_agreement(value, model, written, result));
    if (written.find("inf") != std::string::npos) continue;  // an infinity is not JSON
    ASSERT_EQ(result, static_cast<int>(written.size())) << written;
    // Numbers may have changed once, as -0 becomes 0, but not a second time.
    const std::string again = value.dump();
    ASSERT_EQ(parsed(again).dump(), again);
  }
}
