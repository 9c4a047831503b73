// SPDX-License-Identifier: MIT
// Nesting takes no stack: the deepest texts that fit a message are worked with on a
// thread with a large stack and on one with a small stack.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <cstddef>
#include <memory>
#include <string>
#include <tuple>
#include <utility>

#include "json/stack.h"
#include "json/texts.h"
#include "support/instrumented.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

// The largest message of the notification service. A sanitizer takes its time with that;
// a quarter is too deep for the small stack as well.
constexpr std::size_t kMessage = 524288 / (kInstrumented ? 4 : 1);
constexpr std::size_t kLargeStack = 8 * 1024 * 1024;
constexpr std::size_t kSmallStack = 256 * 1024;

std::string repeated(const std::string& part, std::size_t times) {
  std::string text;
  text.reserve(part.size() * times);
  while (times-- > 0) text += part;
  return text;
}

// A text, what reading it gives, and what the value then writes.
struct DeepText {
  std::string text;
  int result;
  std::string written;
};

DeepText closed(const std::string& opening, const std::string& inside, const std::string& closing) {
  const std::size_t levels = (kMessage - inside.size()) / (opening.size() + closing.size());
  const std::string text = repeated(opening, levels) + inside + repeated(closing, levels);
  return {text, static_cast<int>(text.size()), text};
}

DeepText open_arrays() {
  const std::string text = repeated("[", kMessage);
  return {text, -1, text + "null" + repeated("]", kMessage)};
}

DeepText open_objects() {
  const std::string opening = "{\"a\":";
  const std::size_t levels = kMessage / opening.size();
  const std::string whole = repeated(opening, levels);
  // The last object is cut off in its key.
  const std::string text = whole + opening.substr(0, kMessage - whole.size());
  return {text, -1, whole + "{}" + repeated("}", levels)};
}

const std::string kTextNames[] = {"OpenArrays", "OpenObjects", "ClosedArrays", "ClosedObjects",
                                  "Mixed"};

DeepText make_text(const std::string& name) {
  if (name == "OpenArrays") return open_arrays();
  if (name == "OpenObjects") return open_objects();
  if (name == "ClosedArrays") return closed("[", "", "]");
  if (name == "ClosedObjects") return closed("{\"a\":", "1", "}");
  return closed("[1,{\"a\":", "\"x\"", ",\"b\":[2]},true]");
}

// Not through EXPECT_EQ, which would print half a megabyte.
void expect_same(const std::string& actual, const std::string& expected) {
  EXPECT_EQ(actual.size(), expected.size());
  EXPECT_TRUE(actual == expected);
}

class DeepNesting : public testing::TestWithParam<std::tuple<std::string, std::size_t>> {
 protected:
  // Runs `body` with the text on a thread with the stack.
  template <typename Body>
  static void run(const Body& body) {
    const DeepText deep = make_text(std::get<0>(GetParam()));
    run_on_stack(std::get<1>(GetParam()), [&] { body(deep); });
  }
};

std::string case_name(const testing::TestParamInfo<DeepNesting::ParamType>& info) {
  return std::get<0>(info.param) +
         (std::get<1>(info.param) == kSmallStack ? "OnASmallStack" : "OnALargeStack");
}

std::unique_ptr<JSObject> deep_value(const DeepText& deep) {
  auto value = std::make_unique<JSObject>();
  EXPECT_EQ(parse(*value, deep.text), deep.result);
  return value;
}

}  // namespace

TEST_P(DeepNesting, IsParsedAndDestroyed) {
  run([](const DeepText& deep) {
    auto value = deep_value(deep);
    value.reset();
  });
}

TEST_P(DeepNesting, IsWritten) {
  run([](const DeepText& deep) {
    const auto value = deep_value(deep);
    expect_same(value->dump(), deep.written);
  });
}

TEST_P(DeepNesting, IsWrittenForALog) {
  run([](const DeepText& deep) {
    const auto value = deep_value(deep);
    expect_same(value->logdump(hide_none), deep.written);
  });
}

TEST_P(DeepNesting, IsWrittenAndParsedBack) {
  run([](const DeepText& deep) {
    const auto value = deep_value(deep);
    JSObject back;
    EXPECT_EQ(parse(back, value->dump()), static_cast<int>(deep.written.size()));
    expect_same(back.dump(), deep.written);
  });
}

TEST_P(DeepNesting, IsCopied) {
  run([](const DeepText& deep) {
    auto value = deep_value(deep);
    const JSObject copy(*value);
    value.reset();
    expect_same(copy.dump(), deep.written);
  });
}

TEST_P(DeepNesting, IsAssignedOverItsLike) {
  run([](const DeepText& deep) {
    auto value = deep_value(deep);
    const auto target = deep_value(deep);
    *target = *value;
    value.reset();
    expect_same(target->dump(), deep.written);
  });
}

TEST_P(DeepNesting, IsMoved) {
  run([](const DeepText& deep) {
    const auto value = deep_value(deep);
    const auto target = deep_value(deep);
    *target = std::move(*value);
    const JSObject built(std::move(*target));
    expect_same(built.dump(), deep.written);
  });
}

TEST_P(DeepNesting, IsParsedOver) {
  run([](const DeepText& deep) {
    const auto value = deep_value(deep);
    EXPECT_EQ(parse(*value, deep.text), deep.result);
    expect_same(value->dump(), deep.written);
    EXPECT_EQ(read_into(*value, "5"), (Outcome{1, "5"}));
  });
}

TEST_P(DeepNesting, IsDroppedByAChangeOfKind) {
  run([](const DeepText& deep) {
    const auto value = deep_value(deep);
    const auto copy = deep_value(deep);
    value->resize(0);
    EXPECT_EQ(value->dump(), "[]");
    (*copy)("new") = 1;
    copy->erase("a");
    EXPECT_EQ(copy->dump(), "{\"new\":1}");
  });
}

TEST_P(DeepNesting, IsDestroyedBehindAScalar) {
  run([](const DeepText& deep) {
    auto value = deep_value(deep);
    *value = 5;
    EXPECT_EQ(value->dump(), "5");
    JSObject copy(*value);
    value.reset();
    EXPECT_EQ(copy.dump(), "5");
  });
}

INSTANTIATE_TEST_SUITE_P(Value, DeepNesting,
                         testing::Combine(testing::ValuesIn(kTextNames),
                                          testing::Values(kLargeStack, kSmallStack)),
                         case_name);

TEST(DeepValue, IsBuiltByLookupsAndDestroyed) {
  run_on_stack(kSmallStack, [] {
    constexpr int kLevels = 100000;
    JSObject value;
    JSObject* inside = &value;
    for (int i = 0; i < kLevels; ++i) inside = &(*inside)("a")[0];
    *inside = 7;
    expect_same(value.dump(), repeated("{\"a\":[", kLevels) + "7" + repeated("]}", kLevels));
  });
}

TEST(DeepValue, IsReplacedByItsInnermostPart) {
  run_on_stack(kSmallStack, [] {
    constexpr int kLevels = 100000;
    JSObject value = parsed(repeated("[", kLevels) + "7" + repeated("]", kLevels));
    JSObject* inside = &value;
    for (int i = 0; i < kLevels; ++i) inside = &(*inside)[0];
    value = static_cast<const JSObject&>(*inside);
    EXPECT_EQ(value.dump(), "7");
  });
}

TEST(DeepValue, IsMovedOutOfItself) {
  run_on_stack(kSmallStack, [] {
    JSObject value = parsed(repeated("[", 100000) + "7" + repeated("]", 100000));
    for (int i = 0; i < 99999; ++i) value = std::move(value[0]);
    EXPECT_EQ(value.dump(), "[7]");
  });
}

TEST(DeepValue, IsDestroyedWithSiblingsAtEachLevel) {
  run_on_stack(kSmallStack, [] {
    const std::string text = repeated("[[1,{}],{\"a\":{\"b\":[]},\"c\":[", 20000) +
                             repeated("],\"d\":{\"e\":[2]}},[[3]]]", 20000);
    auto value = std::make_unique<JSObject>();
    EXPECT_EQ(parse(*value, text), static_cast<int>(text.size()));
    expect_same(value->dump(), text);
    value.reset();
  });
}
