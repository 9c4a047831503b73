// SPDX-License-Identifier: MIT
// The lock in each callback record: running invocations hold it shared, and the
// removal of the record holds it exclusive, so that an unregister function returns
// only when the callback has ended.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace zedipc {

// No queue and no preference: a steady stream of shared holders can keep an
// exclusive one waiting.
struct ReadWriteLock {
  std::mutex mutex;
  std::condition_variable condition;
  std::int32_t count = 0;  // 0 free, above 0 the shared holders, -1 an exclusive one
};

// Holds the lock for its own life. It may be destroyed on another thread than the
// one that made it.
class ReadWriteGuard {
 public:
  enum Mode : int { kShared = 0, kExclusive = 1 };

  // Waits for the lock. Any other mode acquires nothing.
  ReadWriteGuard(ReadWriteLock* lock, int mode) : lock_(lock) {
    std::unique_lock<std::mutex> held(lock_->mutex);
    if (mode == kShared) {
      lock_->condition.wait(held, [this] { return lock_->count >= 0; });
      ++lock_->count;
    } else if (mode == kExclusive) {
      lock_->condition.wait(held, [this] { return lock_->count == 0; });
      lock_->count = -1;
    }
  }

  // Wakes the waiting with the mutex held: whoever gets the lock next may free it.
  ~ReadWriteGuard() {
    const std::lock_guard<std::mutex> held(lock_->mutex);
    if (lock_->count > 0) {
      --lock_->count;
    } else {
      lock_->count = 0;
    }
    if (lock_->count == 0) lock_->condition.notify_all();
  }

  ReadWriteGuard(const ReadWriteGuard&) = delete;
  ReadWriteGuard& operator=(const ReadWriteGuard&) = delete;

 private:
  ReadWriteLock* const lock_;
};

}  // namespace zedipc
