// SPDX-License-Identifier: MIT
// The search for a frame in what does not begin like one.
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <zedipc/tcp.h>

#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include "ipc/channels.h"
#include "ipc/receive.h"
#include "ipc/stopwatch.h"
#include "support/background.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr std::uint32_t kRepeating = 0x01010102;
constexpr int kLimit = 100;

std::size_t unread(const IPC& channel) {
  int count = -1;
  EXPECT_EQ(ioctl(channel.getFD(), FIONREAD, &count), 0);
  return static_cast<std::size_t>(count);
}

// A reader that looks at its stream byte by byte.
class Model {
 public:
  Model(std::uint32_t id, std::string stream) : id_(word(id)), stream_(std::move(stream)) {}

  [[nodiscard]] std::string receive() {
    while (left() >= 12 && stream_.compare(at_, 4, id_) != 0) ++at_;
    if (left() < 12) return end();
    const std::uint32_t size = number(at_ + 4) - 4;
    const std::uint32_t tag = number(at_ + 8);
    at_ += 12;
    if (size > kLimit) return "false";
    const std::string payload = stream_.substr(at_, size);
    at_ += payload.size();
    // A payload that is cut short keeps its length.
    if (payload.size() < size) return end();
    return std::to_string(static_cast<std::int32_t>(tag)) + ":" + payload;
  }
  [[nodiscard]] std::size_t left() const { return stream_.size() - at_; }

 private:
  std::string end() {
    at_ = stream_.size();
    return "end";
  }
  [[nodiscard]] std::uint32_t number(std::size_t at) const {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
      value = value << 8 | static_cast<unsigned char>(stream_[at + i]);
    }
    return value;
  }

  const std::string id_;
  const std::string stream_;
  std::size_t at_ = 0;
};

// Pieces that look like frames, or like the beginning of one.
std::string random_stream(std::uint32_t id, std::mt19937& random) {
  const auto below = [&](unsigned n) { return static_cast<unsigned>(random() % n); };
  std::string stream;
  for (unsigned pieces = below(30); pieces > 0; --pieces) {
    switch (below(6)) {
      case 0:
        stream += frame(id, below(100), std::string(below(50), '\1'));
        break;
      case 1:
        stream += frame(id, below(100), std::string(below(300), '\1'));
        break;
      case 2:
        stream += word(id) + word(below(5));
        break;
      case 3:
        stream += word(id).substr(below(4), 1 + below(4));
        break;
      case 4:
        stream += std::string(below(20), static_cast<char>(below(3)));
        break;
      default:
        stream += std::string(below(3000), static_cast<char>(below(3)));
    }
  }
  return stream;
}

// Expects of a channel what the model says, up to the end of the stream.
void expect_like_the_model(std::uint32_t id, const std::string& stream) {
  Adopted adopted;
  Model model(id, stream);
  adopted.peer.send(stream);
  adopted.peer.close();
  for (std::string expected; expected != "end";) {
    expected = model.receive();
    std::string payload;
    int tag = 0;
    const bool received = adopted.channel.read_msg(id, tag, payload, kLimit, 0);
    const std::string found = received                ? std::to_string(tag) + ":" + payload
                              : adopted.channel.eof() ? "end"
                                                      : "false";
    ASSERT_EQ(found, expected);
    ASSERT_EQ(unread(adopted.channel), model.left()) << "no byte of what follows is taken";
  }
}

}  // namespace

TEST(FrameSearch, FindsWhatASearchByteByByteFinds) {
  std::mt19937 random(1);
  for (int round = 0; round < 300; ++round) {
    for (const std::uint32_t id : {kRepeating, 0x01010101U, 0U, 0x4E4659U, 0x01020102U}) {
      const std::string stream = random_stream(id, random);
      expect_like_the_model(id, stream);
      ASSERT_FALSE(HasFatalFailure()) << "round " << round << ", id " << id;
    }
  }
}

TEST(FrameSearch, FindsAFrameWhereverTheGarbageEnds) {
  for (std::size_t length = 1; length < 9000; length += length % 1024 < 40 ? 1 : 983) {
    Adopted adopted;
    adopted.peer.send(std::string(length, 'g') + frame(kId, 7, "abc") + "next");
    ASSERT_EQ(receive(adopted.channel, 0), "7:abc") << length;
    ASSERT_EQ(unread(adopted.channel), 4U) << length;
  }
}

TEST(FrameSearch, FindsAFrameAfterManyBeginningsOfOne) {
  Adopted adopted;
  std::string garbage;
  while (garbage.size() < 10000) garbage += word(kRepeating).substr(0, 3);
  adopted.peer.send(garbage + frame(kRepeating, 7, "abc"));
  EXPECT_EQ(receive(adopted.channel, 0, kLimit, kRepeating), "7:abc");
}

TEST(FrameSearch, WaitsForTheRestOfAHeaderThatItFound) {
  Adopted adopted;
  const std::string bytes = frame(kId, 7, "abc");
  std::string received;
  adopted.peer.send(std::string(5000, 'g') + bytes.substr(0, 2));
  Background reader([&] { received = receive(adopted.channel, 0); });
  for (const char byte : bytes.substr(2)) {
    ASSERT_TRUE(reader.blocks_in(kInPoll));
    adopted.peer.send(std::string(1, byte));
  }
  reader.join();
  EXPECT_EQ(received, "7:abc");
}

TEST(FrameSearch, TakesAllGarbageUntilItsTimeout) {
  Adopted adopted;
  adopted.peer.send(std::string(10000, 'g'));
  const Stopwatch watch;
  EXPECT_EQ(receive(adopted.channel, 0), "false");
  EXPECT_GE(watch.msec(), 10000);
  EXPECT_EQ(unread(adopted.channel), 0U);
  expect_flags(adopted.channel, false, false);
}

TEST(FrameSearch, EndsWithTheStream) {
  for (const std::size_t length : {12U, 13U, 24U, 25U, 4000U, 10000U}) {
    Adopted adopted;
    adopted.peer.send(std::string(length, 'g'));
    adopted.peer.close();
    EXPECT_EQ(receive(adopted.channel), "false");
    expect_flags(adopted.channel, true, false);
  }
}

TEST(FrameSearch, EndsWithAFailure) {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "8"}}, [] {
    ConnectedTcp connected;
    Background reader([&] { EXPECT_EQ(receive(connected.channel, -1), "false"); });
    connected.peer.send(std::string(10000, 'g'));
    EXPECT_TRUE(eventually([&] { return unread(connected.channel) == 0; }));
    EXPECT_TRUE(reader.blocks_in(kInPoll));
    connected.peer.reset();
    reader.join();
    expect_flags(connected.channel, false, true);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(log_messages(result.err),
            Lines{"IPC:error|PTR->IpcPrivate::read(): recv() returned -1 (errno=104)"});
}

TEST(FrameSearch, EndsWhenTheChannelIsClosed) {
  Adopted adopted;
  Background reader([&] { EXPECT_EQ(receive(adopted.channel, -1), "false"); });
  adopted.peer.send(std::string(10000, 'g'));
  ASSERT_TRUE(reader.blocks_in(kInPoll));
  adopted.channel.close();
  EXPECT_TRUE(reader.ends());
}
