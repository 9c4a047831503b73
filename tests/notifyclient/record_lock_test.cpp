// SPDX-License-Identifier: MIT
// The lock in each callback record: shared for running invocations, exclusive for the
// removal of the record.
#include "notifyclient/record_lock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <thread>
#include <type_traits>
#include <vector>

#include "support/background.h"
#include "support/child.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr auto kShared = ReadWriteGuard::kShared;
constexpr auto kExclusive = ReadWriteGuard::kExclusive;

// Takes the lock on a thread of its own and holds it until let go.
class Holder {
 public:
  Holder(ReadWriteLock& lock, int mode)
      : thread_([this, &lock, mode] {
          const ReadWriteGuard guard(&lock, mode);
          holds_ = true;
          while (!let_go_) std::this_thread::yield();
        }) {}
  ~Holder() { let_go(); }
  Holder(const Holder&) = delete;
  Holder& operator=(const Holder&) = delete;

  // Whether the thread waits for the lock.
  [[nodiscard]] bool waits() const { return thread_.blocks_in(kInMutex) && !holds_; }
  [[nodiscard]] bool gets_it() const {
    return eventually([this] { return holds_.load(); });
  }
  void let_go() {
    let_go_ = true;
    thread_.join();
  }

 private:
  std::atomic<bool> holds_{false};
  std::atomic<bool> let_go_{false};
  Background thread_;
};

}  // namespace

TEST(RecordLock, IsFreeWhenNew) {
  const ReadWriteLock lock;
  EXPECT_EQ(lock.count, 0);
}

TEST(RecordLock, HasMutexThenConditionThenCount) {
  EXPECT_LT(offsetof(ReadWriteLock, mutex), offsetof(ReadWriteLock, condition));
  EXPECT_LT(offsetof(ReadWriteLock, condition), offsetof(ReadWriteLock, count));
  EXPECT_TRUE((std::is_same<decltype(ReadWriteLock::count), std::int32_t>::value));
}

TEST(RecordLock, HasModesWithFixedNumbers) {
  EXPECT_EQ(static_cast<int>(kShared), 0);
  EXPECT_EQ(static_cast<int>(kExclusive), 1);
}

TEST(SharedHold, CountsItsHolders) {
  ReadWriteLock lock;
  {
    const ReadWriteGuard first(&lock, kShared);
    EXPECT_EQ(lock.count, 1);
    {
      const ReadWriteGuard second(&lock, kShared);
      EXPECT_EQ(lock.count, 2);
    }
    EXPECT_EQ(lock.count, 1);
  }
  EXPECT_EQ(lock.count, 0);
}

TEST(SharedHold, IsHadBySeveralThreadsAtOnce) {
  ReadWriteLock lock;
  Holder first(lock, kShared);
  Holder second(lock, kShared);
  EXPECT_TRUE(first.gets_it());
  EXPECT_TRUE(second.gets_it());
}

TEST(SharedHold, WaitsForAnExclusiveOne) {
  ReadWriteLock lock;
  auto exclusive = std::make_unique<ReadWriteGuard>(&lock, kExclusive);
  Holder shared(lock, kShared);
  EXPECT_TRUE(shared.waits());
  exclusive.reset();
  EXPECT_TRUE(shared.gets_it());
}

TEST(SharedHold, DoesNotQueueBehindAnExclusiveOneThatWaits) {
  ReadWriteLock lock;
  auto first = std::make_unique<ReadWriteGuard>(&lock, kShared);
  Holder exclusive(lock, kExclusive);
  EXPECT_TRUE(exclusive.waits());
  {
    Holder second(lock, kShared);
    EXPECT_TRUE(second.gets_it());
    EXPECT_TRUE(exclusive.waits());
  }
  first.reset();
  EXPECT_TRUE(exclusive.gets_it());
}

TEST(ExclusiveHold, CountsAsMinusOne) {
  ReadWriteLock lock;
  {
    const ReadWriteGuard guard(&lock, kExclusive);
    EXPECT_EQ(lock.count, -1);
  }
  EXPECT_EQ(lock.count, 0);
}

TEST(ExclusiveHold, WaitsForTheLastSharedOne) {
  ReadWriteLock lock;
  auto first = std::make_unique<ReadWriteGuard>(&lock, kShared);
  auto second = std::make_unique<ReadWriteGuard>(&lock, kShared);
  Holder exclusive(lock, kExclusive);
  EXPECT_TRUE(exclusive.waits());
  first.reset();
  EXPECT_TRUE(exclusive.waits());
  second.reset();
  EXPECT_TRUE(exclusive.gets_it());
}

TEST(ExclusiveHold, WaitsForAnotherExclusiveOne) {
  ReadWriteLock lock;
  auto first = std::make_unique<ReadWriteGuard>(&lock, kExclusive);
  Holder second(lock, kExclusive);
  EXPECT_TRUE(second.waits());
  first.reset();
  EXPECT_TRUE(second.gets_it());
}

TEST(ExclusiveHold, IsHadByOneThreadAtATime) {
  ReadWriteLock lock;
  int unguarded = 0;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < 1000; ++j) {
        const ReadWriteGuard guard(&lock, kExclusive);
        ++unguarded;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(unguarded, 4000);
  EXPECT_EQ(lock.count, 0);
}

TEST(Release, WakesAllThatWaitForASharedHold) {
  ReadWriteLock lock;
  auto exclusive = std::make_unique<ReadWriteGuard>(&lock, kExclusive);
  Holder first(lock, kShared);
  Holder second(lock, kShared);
  EXPECT_TRUE(first.waits());
  EXPECT_TRUE(second.waits());
  exclusive.reset();
  EXPECT_TRUE(first.gets_it());
  EXPECT_TRUE(second.gets_it());
}

TEST(Release, MayComeFromAnotherThread) {
  ReadWriteLock lock;
  auto guard = std::make_unique<ReadWriteGuard>(&lock, kShared);
  Holder exclusive(lock, kExclusive);
  EXPECT_TRUE(exclusive.waits());
  std::thread([&] { guard.reset(); }).join();
  EXPECT_TRUE(exclusive.gets_it());
}

TEST(Release, LetsTheNextHolderFreeTheLock) {
  for (int i = 0; i < 200; ++i) {
    auto lock = std::make_unique<ReadWriteLock>();
    auto running = std::make_unique<ReadWriteGuard>(lock.get(), kShared);
    std::thread removal([&] {
      { const ReadWriteGuard guard(lock.get(), kExclusive); }
      lock.reset();
    });
    running.reset();
    removal.join();
    EXPECT_EQ(lock, nullptr);
  }
}

TEST(OtherMode, AcquiresNothing) {
  ReadWriteLock lock;
  for (const int mode : {-1, 2, 1000}) {
    const ReadWriteGuard guard(&lock, mode);
    EXPECT_EQ(lock.count, 0) << mode;
  }
  EXPECT_EQ(lock.count, 0);
}

TEST(OtherMode, DoesNotWaitForAnExclusiveHold) {
  ReadWriteLock lock;
  Holder exclusive(lock, kExclusive);
  ASSERT_TRUE(exclusive.gets_it());
  const ReadWriteGuard guard(&lock, 2);
  EXPECT_EQ(lock.count, -1);
}

// The end of a guard does not ask how it began.
TEST(OtherMode, ReleasesAHoldAtItsEnd) {
  ReadWriteLock lock;
  const ReadWriteGuard first(&lock, kShared);
  const ReadWriteGuard second(&lock, kShared);
  { const ReadWriteGuard other(&lock, 2); }
  EXPECT_EQ(lock.count, 1);
}
