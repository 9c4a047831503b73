// SPDX-License-Identifier: MIT
// What programs have compiled in of the value, besides the order of its places, and the
// version texts by which they know what they run with.
#include <gtest/gtest.h>
#include <zedipc/ipc.h>
#include <zedipc/jsobject.h>

#include <string>
#include <type_traits>

using namespace zedipc;

namespace {

// The five bytes ahead of a version text.
std::string tag_of(const char* version) { return std::string(version - 5, 5); }

}  // namespace

TEST(ValueAbi, HasNoVirtualTable) {
  EXPECT_FALSE(std::is_polymorphic<JSObject>::value);
  EXPECT_FALSE(std::has_virtual_destructor<JSObject>::value);
}

TEST(ValueAbi, MovesWithoutThrowing) {
  EXPECT_TRUE(std::is_nothrow_move_constructible<JSObject>::value);
  EXPECT_TRUE(std::is_nothrow_move_assignable<JSObject>::value);
  EXPECT_TRUE(std::is_nothrow_destructible<JSObject>::value);
}

TEST(ValueAbi, HasOneNullObjectThatCanBeWrittenTo) {
  EXPECT_TRUE((std::is_same<decltype((JSObject::NullObject)), JSObject&>::value));
  const JSObject empty;
  EXPECT_EQ(&empty("missing"), &JSObject::NullObject);
}

TEST(VersionText, StandsBehindATag) {
  EXPECT_EQ(tag_of(IPC::getVersion()), "$VER ");
  EXPECT_EQ(tag_of(JSObject::getVersion()), "$VER ");
}

TEST(VersionText, IsTheSameTextAtEachCall) {
  EXPECT_EQ(IPC::getVersion(), IPC::getVersion());
  EXPECT_EQ(IPC::ipc_GetVersion(), IPC::ipc_GetVersion());
  EXPECT_EQ(JSObject::getVersion(), JSObject::getVersion());
}

TEST(VersionText, TellsNameVersionAndBuild) {
  EXPECT_STREQ(IPC::getVersion(), "libzedipc 1.18.0 Apr 30 2021 09:42:01");
  EXPECT_STREQ(IPC::ipc_GetVersion(), "1.18.0-1");
  EXPECT_STREQ(JSObject::getVersion(), "libzedjson 1.18.0 Apr 30 2021 09:42:01");
}
