// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <zedipc/jsobject.h>

using zedipc::JSObject;

TEST(Value, IsNullWhenNew) {
  const JSObject value;
  EXPECT_EQ(value.getInt(), 0);
  EXPECT_EQ(value.getNumber(), 0.0);
  EXPECT_FALSE(value.getBool());
  EXPECT_EQ(value.getString(), "null");
}
