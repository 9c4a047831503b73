// SPDX-License-Identifier: MIT
// Sending frames.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <climits>
#include <string>
#include <vector>

#include "ipc/channels.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// The bytes as text, so that a failure can be read.
std::string hex(const std::string& bytes) {
  static const char kDigits[] = "0123456789ABCDEF";
  std::string result;
  for (const char c : bytes) {
    const auto byte = static_cast<unsigned char>(c);
    if (!result.empty()) result += ' ';
    result += kDigits[byte >> 4];
    result += kDigits[byte & 15];
  }
  return result;
}

// The bytes on the wire, of which there have to be no more.
std::string wire(const RawPeer& peer, std::size_t count) {
  std::string bytes = peer.receive(count);
  EXPECT_TRUE(peer.silent(0));
  return hex(bytes);
}

// A channel whose writes can be seen and made to fail.
class Writer : public TCP {
 public:
  using TCP::write_msg;

  bool write(const void* data, int size) override {
    sizes.push_back(size);
    pointers.push_back(data);
    if (static_cast<int>(sizes.size()) == failing) return false;
    return !passes_on || TCP::write(data, size);
  }

  std::vector<int> sizes;
  std::vector<const void*> pointers;
  int failing = 0;  // which write fails, counted from 1
  bool passes_on = true;
};

// Tells what the overloads pass on.
class Overloads : public TCP {
 public:
  using TCP::write_msg;

  bool write_msg(unsigned int msg_id, int msg_tag, const void* data, int size) override {
    calls.push_back(std::to_string(msg_id) + " " + std::to_string(msg_tag) + " " +
                    (data == nullptr ? "null"
                                     : std::string(static_cast<const char*>(data),
                                                   static_cast<std::size_t>(size))) +
                    " " + std::to_string(size));
    return result;
  }

  std::vector<std::string> calls;
  bool result = true;
};

}  // namespace

TEST(WriteMsg, SendsAnEmptyMessageAsTwelveBytes) {
  Adopted adopted;
  EXPECT_TRUE(adopted.channel.write_msg(0x4E4659, 0, nullptr, 0));
  EXPECT_EQ(wire(adopted.peer, 12), "00 4E 46 59 00 00 00 04 00 00 00 00");
}

TEST(WriteMsg, SendsANegativeTagInTwosComplement) {
  Adopted adopted;
  EXPECT_TRUE(adopted.channel.write_msg(1, -1, "\x12\x34", 2));
  EXPECT_EQ(wire(adopted.peer, 14), "00 00 00 01 00 00 00 06 FF FF FF FF 12 34");
}

TEST(WriteMsg, SendsEachWordMostSignificantByteFirst) {
  Adopted adopted;
  const std::string payload(0x010203, 'p');
  EXPECT_TRUE(adopted.channel.write_msg(0xA1B2C3D4U, 0x15161718, payload));
  EXPECT_EQ(hex(adopted.peer.receive(12)), "A1 B2 C3 D4 00 01 02 07 15 16 17 18");
  EXPECT_EQ(adopted.peer.receive(payload.size()), payload);
  EXPECT_TRUE(adopted.peer.silent(0));
}

TEST(WriteMsg, SendsTheExtremesOfIdAndTag) {
  Adopted adopted;
  EXPECT_TRUE(adopted.channel.write_msg(UINT_MAX, INT_MIN, nullptr, 0));
  EXPECT_TRUE(adopted.channel.write_msg(0, INT_MAX, nullptr, 0));
  EXPECT_EQ(wire(adopted.peer, 24),
            "FF FF FF FF 00 00 00 04 80 00 00 00 00 00 00 00 00 00 00 04 7F FF FF FF");
}

TEST(WriteMsg, SendsThePayloadUnchanged) {
  Adopted adopted;
  std::string payload;
  for (int byte = 0; byte < 256; ++byte) payload += static_cast<char>(byte);
  EXPECT_TRUE(adopted.channel.write_msg(7, 8, payload.data(), 256));
  EXPECT_EQ(adopted.peer.receive(268), frame(7, 8, payload));
}

TEST(WriteMsg, LogsWhatItWrote) {
  EXPECT_EQ(
      log_of([] {
        Adopted adopted;
        EXPECT_TRUE(adopted.channel.write_msg(1, 2, "ab", 2));
        EXPECT_TRUE(adopted.channel.write_msg(1, 2, nullptr, 0));
      }),
      (Lines{"IPC:debug|IPC::write_msg() -> wrote 14 bytes successfully (payload: 2 bytes).",
             "IPC:debug|IPC::write_msg() -> wrote 12 bytes successfully (payload: 0 bytes)."}));
}

TEST(WriteMsg, WritesHeaderAndPayloadApart) {
  AdoptedChannel<Writer> adopted;
  EXPECT_TRUE(adopted.channel.write_msg(1, 2, "abc", 3));
  EXPECT_EQ(adopted.channel.sizes, (std::vector<int>{12, 3}));
  EXPECT_EQ(adopted.peer.receive(15), frame(1, 2, "abc"));
}

TEST(WriteMsg, WritesThePayloadFromWhereItStands) {
  AdoptedChannel<Writer> adopted;
  const char payload[] = "abc";
  EXPECT_TRUE(adopted.channel.write_msg(1, 2, payload, 3));
  EXPECT_EQ(adopted.channel.pointers.back(), payload);
}

TEST(WriteMsg, WritesAnEmptyPayloadToo) {
  AdoptedChannel<Writer> adopted;
  EXPECT_TRUE(adopted.channel.write_msg(1, 2, nullptr, 0));
  EXPECT_EQ(adopted.channel.sizes, (std::vector<int>{12, 0}));
}

TEST(WriteMsg, TakesTheLargestSizeThatHasALengthWord) {
  Writer channel;
  channel.passes_on = false;
  EXPECT_TRUE(channel.write_msg(1, 2, "x", INT_MAX - 4));
  EXPECT_EQ(channel.sizes, (std::vector<int>{12, INT_MAX - 4}));
}

TEST(WriteMsg, RefusesASizeWithoutALengthWord) {
  Writer channel;
  channel.passes_on = false;
  EXPECT_FALSE(channel.write_msg(1, 2, "x", INT_MAX - 3));
  EXPECT_FALSE(channel.write_msg(1, 2, "x", INT_MAX));
  EXPECT_EQ(channel.sizes, std::vector<int>{});
  EXPECT_FALSE(channel.error());
}

// ---- Bad arguments

TEST(WriteMsgOfNoData, FailsWithoutAWordOrAByte) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              EXPECT_FALSE(adopted.channel.write_msg(1, 2, nullptr, 3));
              EXPECT_FALSE(adopted.channel.error());
              EXPECT_TRUE(adopted.peer.silent(0));
            }),
            Lines{});
}

TEST(WriteMsgOfANegativeSize, FailsWithoutAWordOrAByte) {
  EXPECT_EQ(log_of([] {
              Adopted adopted;
              EXPECT_FALSE(adopted.channel.write_msg(1, 2, "x", -1));
              EXPECT_FALSE(adopted.channel.write_msg(1, 2, nullptr, INT_MIN));
              EXPECT_FALSE(adopted.channel.error());
              EXPECT_TRUE(adopted.peer.silent(0));
            }),
            Lines{});
}

TEST(WriteMsgOfNoData, SetsNoErrorOnAClosedChannel) {
  TCP channel;
  EXPECT_FALSE(channel.write_msg(1, 2, nullptr, 3));
  EXPECT_FALSE(channel.error());
}

// ---- Failures

TEST(WriteMsg, FailsAtTheHeaderWithoutAConnection) {
  EXPECT_EQ(log_of([] {
              TCP channel;
              EXPECT_FALSE(channel.write_msg(1, 2, "abc", 3));
              EXPECT_TRUE(channel.error());
            }),
            (Lines{"IPC:error|PTR->IpcPrivate::write(): no connection",
                   "IPC:error|IPC::write_msg() -> write header (12 bytes)"}));
}

TEST(WriteMsg, FailsAtTheHeaderOfAnEmptyMessageToo) {
  TCP channel;
  EXPECT_FALSE(channel.write_msg(1, 2, nullptr, 0));
  EXPECT_TRUE(channel.error());
}

TEST(WriteMsg, DoesNotWriteThePayloadAfterAHeaderThatFailed) {
  AdoptedChannel<Writer> adopted;
  adopted.channel.failing = 1;
  EXPECT_FALSE(adopted.channel.write_msg(1, 2, "abc", 3));
  EXPECT_EQ(adopted.channel.sizes, std::vector<int>{12});
}

TEST(WriteMsg, LeavesTheHeaderSentWhenThePayloadFails) {
  EXPECT_EQ(log_of([] {
              AdoptedChannel<Writer> adopted;
              adopted.channel.failing = 2;
              EXPECT_FALSE(adopted.channel.write_msg(1, 2, "abcde", 5));
              EXPECT_EQ(wire(adopted.peer, 12), "00 00 00 01 00 00 00 09 00 00 00 02");
            }),
            Lines{"IPC:error|IPC::write_msg() -> write data (5 bytes)"});
}

// ---- The overloads

TEST(WriteMsgOverload, OfBytesPassesThemOn) {
  Overloads channel;
  EXPECT_TRUE(channel.write_msg(1, -2, std::vector<unsigned char>{'a', 'b', 0}));
  EXPECT_EQ(channel.calls, std::vector<std::string>{std::string("1 -2 ab\0 3", 10)});
}

TEST(WriteMsgOverload, OfCharactersPassesThemOn) {
  Overloads channel;
  EXPECT_TRUE(channel.write_msg(1, -2, std::vector<char>{'a', 'b', 0}));
  EXPECT_EQ(channel.calls, std::vector<std::string>{std::string("1 -2 ab\0 3", 10)});
}

TEST(WriteMsgOverload, OfAStringPassesItOnWithoutATerminator) {
  Overloads channel;
  EXPECT_TRUE(channel.write_msg(1, -2, std::string("ab\0", 3)));
  EXPECT_EQ(channel.calls, std::vector<std::string>{std::string("1 -2 ab\0 3", 10)});
}

TEST(WriteMsgOverload, OfAnEmptyVectorPassesNull) {
  Overloads channel;
  EXPECT_TRUE(channel.write_msg(1, 2, std::vector<unsigned char>()));
  EXPECT_TRUE(channel.write_msg(3, 4, std::vector<char>()));
  EXPECT_EQ(channel.calls, (std::vector<std::string>{"1 2 null 0", "3 4 null 0"}));
}

TEST(WriteMsgOverload, OfAnEmptyStringIsAnEmptyMessage) {
  Adopted adopted;
  EXPECT_TRUE(adopted.channel.write_msg(1, 2, std::string()));
  EXPECT_EQ(wire(adopted.peer, 12), "00 00 00 01 00 00 00 04 00 00 00 02");
}

TEST(WriteMsgOverload, PassesAFailureBack) {
  Overloads channel;
  channel.result = false;
  EXPECT_FALSE(channel.write_msg(1, 2, std::vector<unsigned char>{1}));
  EXPECT_FALSE(channel.write_msg(1, 2, std::vector<char>{1}));
  EXPECT_FALSE(channel.write_msg(1, 2, std::string("x")));
}

TEST(WriteMsgOverload, SendsOverTheWire) {
  Adopted adopted;
  EXPECT_TRUE(adopted.channel.write_msg(1, 2, std::vector<unsigned char>{0xFF, 0}));
  EXPECT_TRUE(adopted.channel.write_msg(1, 2, std::vector<char>{'a', 0}));
  EXPECT_TRUE(adopted.channel.write_msg(1, 2, std::string("b\0", 2)));
  EXPECT_EQ(wire(adopted.peer, 42),
            hex(frame(1, 2, std::string("\xFF\0", 2)) + frame(1, 2, std::string("a\0", 2)) +
                frame(1, 2, std::string("b\0", 2))));
}
