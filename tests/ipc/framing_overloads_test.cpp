// SPDX-License-Identifier: MIT
// Receiving frames into each kind of container.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <string>
#include <vector>

#include "ipc/channels.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

template <typename Container>
class ReadMsgInto : public testing::Test {};

using Containers = testing::Types<std::string, std::vector<char>, std::vector<unsigned char>>;

template <typename Container>
std::string text(const Container& container) {
  return std::string(container.begin(), container.end());
}

template <typename Container>
Container holding(const std::string& content) {
  return Container(content.begin(), content.end());
}

// Overrides the receiver that all others are made of.
class Receiver : public TCP {
 public:
  using TCP::read_msg;

  bool read_msg(unsigned int msg_id, int& msg_tag, IpcBuffer& buffer, int size_limit,
                int timeout_msec) override {
    arguments = std::to_string(msg_id) + " " + std::to_string(msg_tag) + " " +
                std::to_string(size_limit) + " " + std::to_string(timeout_msec);
    buffer.resize(3);
    static_cast<char*>(buffer.data())[1] = 'x';
    msg_tag = 99;
    return result;
  }

  std::string arguments;
  bool result = true;
};

// Lets the container's adaptor be looked at while it lives.
class Inspector : public TCP {
 public:
  using TCP::read_msg;

  bool read_msg(unsigned int, int&, IpcBuffer& buffer, int, int) override {
    buffer.clear();
    null_when_empty = buffer.data() == nullptr;
    buffer.resize(2);
    first = buffer.data();
    buffer.resize(0);
    null_when_shrunk_to_nothing = buffer.data() == nullptr;
    buffer.resize(4);
    return true;
  }

  bool null_when_empty = false;
  bool null_when_shrunk_to_nothing = false;
  const void* first = nullptr;
};

}  // namespace

TYPED_TEST_SUITE(ReadMsgInto, Containers);

TYPED_TEST(ReadMsgInto, StoresExactlyThePayload) {
  Adopted adopted;
  adopted.peer.send(frame(5, 6, std::string("a\0b\xFF\0", 5)));
  TypeParam payload;
  int tag = 0;
  ASSERT_TRUE(adopted.channel.read_msg(5, tag, payload, 100, 10000));
  EXPECT_EQ(text(payload), std::string("a\0b\xFF\0", 5));
  EXPECT_EQ(tag, 6);
}

TYPED_TEST(ReadMsgInto, ShrinksALongerContainer) {
  Adopted adopted;
  adopted.peer.send(frame(5, 6, "ab"));
  auto payload = holding<TypeParam>("a longer text");
  int tag = 0;
  ASSERT_TRUE(adopted.channel.read_msg(5, tag, payload, 100, 10000));
  EXPECT_EQ(text(payload), "ab");
}

TYPED_TEST(ReadMsgInto, GrowsAShorterContainer) {
  Adopted adopted;
  const std::string expected(100000, 'p');
  adopted.peer.send(frame(5, 6, expected));
  auto payload = holding<TypeParam>("x");
  int tag = 0;
  ASSERT_TRUE(adopted.channel.read_msg(5, tag, payload, 100000, 10000));
  EXPECT_EQ(text(payload), expected);
}

TYPED_TEST(ReadMsgInto, EmptiesTheContainerForAnEmptyMessage) {
  Adopted adopted;
  adopted.peer.send(frame(5, 6, ""));
  auto payload = holding<TypeParam>("old");
  int tag = 0;
  ASSERT_TRUE(adopted.channel.read_msg(5, tag, payload, 100, 10000));
  EXPECT_TRUE(payload.empty());
  EXPECT_EQ(tag, 6);
}

TYPED_TEST(ReadMsgInto, EmptiesTheContainerWhenTheHeaderFails) {
  Adopted adopted;
  auto payload = holding<TypeParam>("old");
  int tag = 42;
  EXPECT_FALSE(adopted.channel.read_msg(5, tag, payload, 100, 0));
  EXPECT_TRUE(payload.empty());
  EXPECT_EQ(tag, 42);
}

TYPED_TEST(ReadMsgInto, KeepsTheCapacityOfAContainerThatItEmpties) {
  Adopted adopted;
  adopted.peer.send(frame(5, 6, "too long"));
  auto payload = holding<TypeParam>(std::string(5000, 'x'));
  int tag = 0;
  EXPECT_FALSE(adopted.channel.read_msg(5, tag, payload, 3, 10000));
  EXPECT_TRUE(payload.empty());
  EXPECT_GE(payload.capacity(), 5000U);
}

TYPED_TEST(ReadMsgInto, LeavesZerosBehindAPayloadThatIsCutShort) {
  Adopted adopted;
  adopted.peer.send(frame(5, 6, "abcde").substr(0, 14));
  adopted.peer.close();
  TypeParam payload;
  int tag = 0;
  EXPECT_FALSE(adopted.channel.read_msg(5, tag, payload, 100, 10000));
  EXPECT_EQ(text(payload), std::string("ab\0\0\0", 5));
  EXPECT_EQ(tag, 6);
}

TYPED_TEST(ReadMsgInto, GoesThroughTheOverloadForBuffers) {
  Receiver channel;
  auto payload = holding<TypeParam>("abcdef");
  int tag = 7;
  EXPECT_TRUE(channel.read_msg(5, tag, payload, 8, -9));
  EXPECT_EQ(channel.arguments, "5 7 8 -9");
  EXPECT_EQ(tag, 99);
  EXPECT_EQ(text(payload), "axc");
}

TYPED_TEST(ReadMsgInto, PassesAFailureBack) {
  Receiver channel;
  channel.result = false;
  TypeParam payload;
  int tag = 7;
  EXPECT_FALSE(channel.read_msg(5, tag, payload, 8, 9));
  EXPECT_EQ(text(payload), std::string("\0x\0", 3)) << "new bytes are zero";
}

TYPED_TEST(ReadMsgInto, OffersTheContainersOwnStorage) {
  Inspector channel;
  TypeParam payload;
  payload.reserve(100);
  int tag = 0;
  ASSERT_TRUE(channel.read_msg(5, tag, payload, 8, 9));
  EXPECT_TRUE(channel.null_when_empty);
  EXPECT_TRUE(channel.null_when_shrunk_to_nothing);
  EXPECT_EQ(channel.first, payload.data());
  EXPECT_EQ(text(payload), std::string(4, '\0'));
}

TEST(ReadMsgIntoAString, LeavesACopyOfTheStringAlone) {
  Adopted adopted;
  adopted.peer.send(frame(5, 6, "new"));
  std::string payload = "old";
  const std::string copy = payload;
  int tag = 0;
  ASSERT_TRUE(adopted.channel.read_msg(5, tag, payload, 100, 10000));
  EXPECT_EQ(payload, "new");
  EXPECT_EQ(copy, "old");
}
