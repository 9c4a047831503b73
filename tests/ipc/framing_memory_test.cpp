// SPDX-License-Identifier: MIT
// The memory that a payload takes while it comes.
#include <gtest/gtest.h>
#include <sys/ioctl.h>

#include <array>
#include <string>
#include <thread>
#include <vector>

#include "ipc/callbacks.h"
#include "ipc/channels.h"
#include "ipc/receive.h"
#include "ipc/system_calls.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kLarge = 500000;
constexpr std::size_t kAtOnce = 65536;

std::string large_payload() {
  std::string payload;
  while (payload.size() < kLarge) payload += std::to_string(payload.size());
  payload.resize(kLarge);
  return payload;
}

// Has this much of the large frame come, and nothing more, when the reader waits for the rest.
// The reader then finds the stream at its end.
void come_in_part(const Adopted& adopted, SystemCalls& calls, std::size_t size,
                  const std::function<void()>& look) {
  const std::string part = frame(kId, 7, large_payload()).substr(0, 12 + size);
  adopted.peer.send(part);
  Answer end{1, 0, POLLIN};
  end.meanwhile = [&adopted, look] {
    int unread = -1;
    if (ioctl(adopted.channel.getFD(), FIONREAD, &unread) == 0 && unread > 0) return;
    look();
    shutdown(adopted.peer.fd(), SHUT_WR);
  };
  calls.answer_poll(std::vector<Answer>(20, end));
}

template <typename Container>
class PayloadMemory : public testing::Test {};

using Containers = testing::Types<std::string, std::vector<char>, std::vector<unsigned char>>;
TYPED_TEST_SUITE(PayloadMemory, Containers);

template <typename Container>
std::string text(const Container& container) {
  return std::string(container.begin(), container.end());
}

// Counts what is asked of it.
class OwnBuffer : public IPC::IpcBuffer {
 public:
  void clear() override { bytes.clear(); }
  void resize(int size) override {
    sizes.push_back(size);
    bytes.resize(static_cast<std::size_t>(size));
  }
  void* data() override { return bytes.data(); }

  std::vector<char> bytes;
  std::vector<int> sizes;
};

}  // namespace

TYPED_TEST(PayloadMemory, IsSmallWhereOnlyALengthHasCome) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  TypeParam payload;
  std::size_t reserved = 0;
  come_in_part(adopted, calls, 0, [&] { reserved = payload.capacity(); });
  int tag = 0;
  EXPECT_FALSE(adopted.channel.read_msg(kId, tag, payload, kLarge, 0));
  EXPECT_GT(reserved, 0U);
  EXPECT_LT(reserved, kAtOnce) << "with a byte for the end of a string";
}

TYPED_TEST(PayloadMemory, GrowsWithWhatHasCome) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  TypeParam payload;
  std::size_t reserved = 0;
  come_in_part(adopted, calls, 100000, [&] { reserved = payload.capacity(); });
  int tag = 0;
  EXPECT_FALSE(adopted.channel.read_msg(kId, tag, payload, kLarge, 0));
  EXPECT_GE(reserved, 100000U);
  EXPECT_LE(reserved, 200000U);
}

TYPED_TEST(PayloadMemory, IsThatOfTheContainerWhereItHasMore) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  TypeParam payload;
  payload.reserve(kLarge);
  const auto* const before = payload.data();
  adopted.peer.send(frame(kId, 7, large_payload()).substr(0, 100012));
  std::thread rest([&] { adopted.peer.send(large_payload().substr(100000)); });
  int tag = 0;
  EXPECT_TRUE(adopted.channel.read_msg(kId, tag, payload, kLarge, 10000));
  rest.join();
  EXPECT_EQ(payload.data(), before);
  EXPECT_EQ(text(payload), large_payload());
}

TYPED_TEST(PayloadMemory, HoldsThePayloadInTheEnd) {
  Adopted adopted;
  TypeParam payload;
  std::thread peer([&] { adopted.peer.send(frame(kId, 7, large_payload())); });
  int tag = 0;
  EXPECT_TRUE(adopted.channel.read_msg(kId, tag, payload, kLarge, 10000));
  peer.join();
  EXPECT_EQ(text(payload), large_payload());
  EXPECT_EQ(tag, 7);
}

TYPED_TEST(PayloadMemory, HasItsFullLengthForAPayloadThatIsCutShort) {
  for (const std::size_t come : {0U, 10U, 65535U, 65536U, 100000U}) {
    Adopted adopted;
    TypeParam payload(70000, 'o');
    adopted.peer.send(frame(kId, 7, large_payload()).substr(0, 12 + come));
    adopted.peer.close();
    int tag = 0;
    EXPECT_FALSE(adopted.channel.read_msg(kId, tag, payload, kLarge, 10000));
    std::string expected = std::string(70000, 'o');
    expected.resize(kLarge);
    expected.replace(0, come, large_payload().substr(0, come));
    EXPECT_EQ(text(payload), expected) << come;
    EXPECT_TRUE(adopted.channel.eof());
  }
}

TEST(PayloadMemory, OfABufferOfTheUsersIsAskedForAtOnce) {
  Adopted adopted;
  OwnBuffer buffer;
  std::thread peer([&] { adopted.peer.send(frame(kId, 7, large_payload())); });
  int tag = 0;
  EXPECT_TRUE(adopted.channel.read_msg(kId, tag, buffer, kLarge, 10000));
  peer.join();
  EXPECT_EQ(buffer.sizes, std::vector<int>{kLarge});
  EXPECT_EQ(text(buffer.bytes), large_payload());
}

// A receiver that hands the container's buffer on only after it has used one of its own.
TEST(PayloadMemory, OfABufferOfTheUsersIsNotTakenForThatOfAContainer) {
  class Copying : public TCP {
   public:
    using TCP::read_msg;
    bool read_msg(unsigned int msg_id, int& msg_tag, IpcBuffer& buffer, int size_limit,
                  int timeout_msec) override {
      const bool received = TCP::read_msg(msg_id, msg_tag, own, size_limit, timeout_msec);
      buffer.resize(2);
      return received;
    }
    OwnBuffer own;
  };
  AdoptedChannel<Copying> adopted;
  std::string payload;
  std::thread peer([&] { adopted.peer.send(frame(kId, 7, large_payload())); });
  int tag = 0;
  EXPECT_TRUE(adopted.channel.read_msg(kId, tag, payload, kLarge, 10000));
  peer.join();
  EXPECT_EQ(adopted.channel.own.sizes, std::vector<int>{kLarge});
  EXPECT_EQ(payload.size(), 2U);
}

TEST(PayloadWaits, AreTheSameForEachPieceOfALargePayload) {
  Adopted adopted;
  SystemCalls calls(adopted.channel.getFD());
  const std::string bytes = frame(kId, 7, large_payload());
  std::thread peer([&] { adopted.peer.send(bytes); });
  std::string payload;
  int tag = 0;
  EXPECT_TRUE(adopted.channel.read_msg(kId, tag, payload, kLarge, 20000));
  peer.join();
  const Timeouts timeouts = calls.poll_timeouts();
  for (std::size_t i = 0; i < timeouts.size(); ++i) {
    EXPECT_TRUE(timeouts[i] == 20000 || i == 1) << i << ": " << timeouts[i];
  }
}

// ---- The dispatcher

namespace {

int wake_ups_to_read() {
  int count = -1;
  EXPECT_EQ(ioctl(wake_up_end(), FIONREAD, &count), 0);
  return count;
}

}  // namespace

TEST(LargePayload, WakesTheDispatcherOnceAtItsEnd) {
  Callback callback;
  Adopted watched;
  ASSERT_TRUE(callback.set_on(watched.channel));
  settle();
  std::array<Adopted, 2> channels;
  const DispatcherPause pause;
  for (const bool whole : {true, false}) {
    Adopted& adopted = channels[whole ? 1 : 0];
    std::string bytes = frame(kId, 7, large_payload());
    if (!whole) bytes.resize(200000);
    std::thread peer([&] {
      adopted.peer.send(bytes);
      adopted.peer.close();
    });
    std::string payload;
    int tag = 0;
    const int before = wake_ups_to_read();
    EXPECT_EQ(adopted.channel.read_msg(kId, tag, payload, kLarge, 10000), whole);
    peer.join();
    EXPECT_EQ(wake_ups_to_read(), before + 1);
    EXPECT_EQ(inner_state(adopted.channel).cb_state, CB_ARMED);
  }
}
