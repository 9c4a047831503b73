// SPDX-License-Identifier: MIT
// Frames of several writers, which share a lock, to one reader.
#include <atomic>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "ipc/receive.h"
#include "stress/links.h"
#include "stress/stress.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kWriters = 4;
constexpr int kTagsPerWriter = 100000;

std::string payload(int writer, int number) {
  return std::string(static_cast<std::size_t>(number * 37 % 4000), static_cast<char>('a' + writer));
}

class Frames {
 public:
  explicit Frames(Link link) : link_(std::move(link)) {}

  // Writes so many frames, or fewer if one fails.
  void write(int writer, int count) {
    for (int number = 0; number < count; ++number) {
      const std::string data = payload(writer, number);
      const std::lock_guard<std::mutex> lock(writing_);
      if (!link_.one->write_msg(kId, writer * kTagsPerWriter + number, data)) return;
      ++written_;
    }
  }

  // Reads so many frames, or fewer if one fails, and finds each writer's in their order.
  void read(int count) {
    std::map<int, int> next;
    std::string data;
    int tag = 0;
    while (read_ < count && link_.other->read_msg(kId, tag, data, 4000, 20000)) {
      const int writer = tag / kTagsPerWriter;
      const int number = next[writer]++;
      EXPECT_EQ(tag % kTagsPerWriter, number);
      if (data != payload(writer, number)) ADD_FAILURE() << "not what was written";
      ++read_;
    }
  }

  void close(bool reader, int after) {
    while (read_ < after) std::this_thread::yield();
    (reader ? link_.other : link_.one)->close();
  }

  [[nodiscard]] int written() const { return written_; }
  [[nodiscard]] int read() const { return read_; }
  IPC& writing_end() { return *link_.one; }
  IPC& reading_end() { return *link_.other; }

 private:
  Link link_;
  std::mutex writing_;
  std::atomic<int> written_{0};
  std::atomic<int> read_{0};
};

constexpr int kWithoutEnd = kTagsPerWriter;

// Writers without an end, and one end that is closed after so many frames.
void run_into_close(Frames& frames, bool reader, int after) {
  Crew crew(kWriters + 2, [&](int worker, Random&) {
    if (worker < kWriters) frames.write(worker, kWithoutEnd);
    if (worker == kWriters) frames.close(reader, after);
    if (worker == kWriters + 1) {
      frames.read(kWriters * kWithoutEnd);
      // Or the writers would wait for a reader, over TCP for a minute after it closed.
      frames.reading_end().close();
      frames.writing_end().close();
    }
  });
}

template <typename Links>
class FramesOf : public testing::Test {};
TYPED_TEST_SUITE(FramesOf, KindsOfLinks, LinkName);

}  // namespace

TYPED_TEST(FramesOf, SeveralWritersArriveWholeAndInOrder) {
  const HangGuard guard;
  TypeParam links;
  Frames frames(links.make());
  const int each = amount(5000);
  {
    Crew crew(kWriters + 1, [&](int worker, Random&) {
      if (worker < kWriters) frames.write(worker, each);
      if (worker == kWriters) frames.read(kWriters * each);
    });
  }
  EXPECT_EQ(frames.written(), kWriters * each);
  EXPECT_EQ(frames.read(), kWriters * each);
  EXPECT_FALSE(frames.reading_end().poll_in(0));
}

TYPED_TEST(FramesOf, AClosedWriterArriveAsFarAsTheyWereWritten) {
  const HangGuard guard;
  TypeParam links;
  Random random(0);
  for (int i = 0; i < amount(100); ++i) {
    Frames frames(links.make());
    run_into_close(frames, false, random.below(300));
    ASSERT_EQ(frames.read(), frames.written());
    ASSERT_EQ(frames.writing_end().getFD(), -1);
  }
}

TYPED_TEST(FramesOf, AClosedReaderAreReadInOrderToTheLast) {
  const HangGuard guard;
  TypeParam links;
  Random random(0);
  for (int i = 0; i < amount(100); ++i) {
    Frames frames(links.make());
    const int after = random.below(300);
    run_into_close(frames, true, after);
    ASSERT_GE(frames.read(), after);
    ASSERT_LE(frames.read(), frames.written());
    ASSERT_EQ(frames.reading_end().getFD(), -1);
  }
}
