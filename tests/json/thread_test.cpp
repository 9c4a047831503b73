// SPDX-License-Identifier: MIT
// What several threads may do at once.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>
#include <thread>
#include <vector>

#include "json/texts.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

constexpr int kThreads = 4;
constexpr int kRounds = 500;

template <typename Body>
void on_threads(const Body& body) {
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([&body, i] {
      for (int round = 0; round < kRounds; ++round) body(i);
    });
  }
  for (std::thread& thread : threads) thread.join();
}

const char kText[] = "{\"a\":[1,2.5,{\"b\":\"\\u00e9\\n\"}],\"c\":false,\"d\":null}";

}  // namespace

TEST(Threads, MissAtOnceAndReadNull) {
  const JSObject value = parsed(kText);
  on_threads([&value](int) {
    EXPECT_EQ(value("missing")("deeper").getInt(), 0);
    EXPECT_EQ(value("a")[7].getString(), "null");
    JSObject own;
    EXPECT_FALSE(own[-1].getBool());
  });
}

TEST(Threads, ReadNullObjectAtOnceWhileOthersMiss) {
  const JSObject value;
  on_threads([&value](int) {
    value("missing");
    EXPECT_EQ(JSObject(JSObject::NullObject).dump(), "null");
    EXPECT_FALSE(JSObject::NullObject.exists("a"));
  });
}

TEST(Threads, ReadOneValueAtOnce) {
  const JSObject value = parsed(kText);
  const std::string text = value.dump();
  on_threads([&](int) {
    EXPECT_EQ(value.dump(), text);
    EXPECT_EQ(value("a")[1].getNumber(), 2.5);
    EXPECT_EQ(JSObject(value).dump(), text);
    EXPECT_TRUE(value.exists("c"));
  });
}

TEST(Threads, ParseIntoValuesOfTheirOwnAtOnce) {
  on_threads([](int number) {
    const std::string text = "[" + std::to_string(number) + ",{\"a\":\"\\n\"}]";
    EXPECT_EQ(read(text), (Outcome{static_cast<int>(text.size()), text}));
  });
}
