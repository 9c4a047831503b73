// SPDX-License-Identifier: MIT
// Locks that clang checks: each says what it guards, and `./dev lint` finds the access that
// does not hold it. Nothing here has a destructor that does anything, so that a lock at
// namespace scope outlives every thread.
#pragma once

#include <pthread.h>

#ifdef __clang__
#define ZEDIPC_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define ZEDIPC_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) ZEDIPC_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY ZEDIPC_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) ZEDIPC_THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) ZEDIPC_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) ZEDIPC_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) ZEDIPC_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) ZEDIPC_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))
#define RELEASE(...) ZEDIPC_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define NO_THREAD_SAFETY_ANALYSIS ZEDIPC_THREAD_ANNOTATION(no_thread_safety_analysis)

namespace zedipc {

class CAPABILITY("mutex") Mutex {
 public:
  enum Kind { kPlain, kRecursive };

  constexpr explicit Mutex(Kind kind = kPlain)
      : mutex_(kind == kRecursive ? pthread_mutex_t(PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP)
                                  : pthread_mutex_t(PTHREAD_MUTEX_INITIALIZER)) {}
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() ACQUIRE() { pthread_mutex_lock(&mutex_); }
  bool try_lock() TRY_ACQUIRE(true) { return pthread_mutex_trylock(&mutex_) == 0; }
  void unlock() RELEASE() { pthread_mutex_unlock(&mutex_); }

 private:
  friend class Condition;
  pthread_mutex_t mutex_;
};

// Holds a mutex for its own life.
class SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

// Something to wait for. A wait can end without a notification, so look again.
class Condition {
 public:
  constexpr Condition() = default;
  Condition(const Condition&) = delete;
  Condition& operator=(const Condition&) = delete;

  void wait(Mutex& mutex) REQUIRES(mutex) { pthread_cond_wait(&condition_, &mutex.mutex_); }
  void notify_all() { pthread_cond_broadcast(&condition_); }

 private:
  pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
};

}  // namespace zedipc
