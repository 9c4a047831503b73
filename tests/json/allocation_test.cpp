// SPDX-License-Identifier: MIT
// What an ordinary message costs in memory.
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

#include <string>

#include "json/texts.h"
#include "support/allocations.h"

using zedipc::JSObject;
using namespace zedipc::test;

namespace {

const char kMessage[] =
    "{\"flags\":0,\"from\":\"printer\",\"notification\":\"paper.out\",\"parameter\":{\"tray\":2,"
    "\"level\":0.25},\"to\":\"display\",\"type\":\"notify\"}";

}  // namespace

TEST(Allocation, IsOneForEachMemberThatIsRead) {
  EXPECT_EQ(cost([] { JSObject().parse(kMessage); }), 8);
}

TEST(Allocation, IsOneMoreForALongString) {
  EXPECT_EQ(cost([] { JSObject().parse("\"a text that does not fit the string itself\""); }), 1);
}

TEST(Allocation, IsOneForTheTextOfAMessage) {
  const JSObject message = parsed(kMessage);
  EXPECT_EQ(cost([&] { message.dump(); }), 1);
}

TEST(Allocation, IsNotMadeForATextThatHasItsPlace) {
  const JSObject message = parsed(kMessage);
  std::string text;
  EXPECT_EQ(cost([&] {
              text.clear();
              message.dump(text);
            }),
            0);
}

TEST(Allocation, IsNotMadeByMovingAValue) {
  JSObject message = parsed(kMessage);
  EXPECT_EQ(cost([&] {
              JSObject moved(std::move(message));
              message = std::move(moved);
            }),
            0);
}
