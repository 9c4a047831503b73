// SPDX-License-Identifier: MIT
#include "support/failing_threads.h"

#include <pthread.h>

#include <atomic>
#include <cerrno>

#include "support/next_function.h"

namespace zedipc::test {

namespace {

std::atomic<int> threads_to_fail{0};
std::atomic<int> attributes_to_fail{0};
std::atomic<int> detached_to_fail{0};
std::atomic<int> stack_sizes_to_fail{0};
std::atomic<std::size_t> least_stack{0};
std::atomic<int> destroyed{0};

// Whether this call is one of those that fail.
bool take(std::atomic<int>& count) {
  int left = count;
  while (left > 0 && !count.compare_exchange_weak(left, left - 1)) {
  }
  return left > 0;
}

}  // namespace

void fail_threads(int count) { threads_to_fail = count; }

void fail_attributes(int count) { attributes_to_fail = count; }

void fail_detached(int count) { detached_to_fail = count; }

void fail_stack_sizes(int count) { stack_sizes_to_fail = count; }

void refuse_stacks_below(std::size_t size) { least_stack = size; }

int destroyed_attributes() { return destroyed; }

}  // namespace zedipc::test

// A sanitizer that is linked into the program has its own here. Behind ours there is only
// the system's then, whose threads it would not know.
extern "C" __attribute__((weak)) decltype(pthread_create) __interceptor_pthread_create;

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*function)(void*), void* argument) {
  using namespace zedipc::test;
  if (take(threads_to_fail)) return EAGAIN;
  const auto create = __interceptor_pthread_create != nullptr
                          ? __interceptor_pthread_create
                          : next<decltype(&pthread_create)>("pthread_create");
  return create(thread, attributes, function, argument);
}

extern "C" int pthread_attr_init(pthread_attr_t* attributes) {
  using namespace zedipc::test;
  if (take(attributes_to_fail)) return ENOMEM;
  return next<decltype(&pthread_attr_init)>("pthread_attr_init")(attributes);
}

extern "C" int pthread_attr_setdetachstate(pthread_attr_t* attributes, int state) {
  using namespace zedipc::test;
  if (take(detached_to_fail)) return EINVAL;
  return next<decltype(&pthread_attr_setdetachstate)>("pthread_attr_setdetachstate")(attributes,
                                                                                     state);
}

extern "C" int pthread_attr_setstacksize(pthread_attr_t* attributes, size_t size) {
  using namespace zedipc::test;
  if (take(stack_sizes_to_fail) || size < least_stack) return EINVAL;
  return next<decltype(&pthread_attr_setstacksize)>("pthread_attr_setstacksize")(attributes, size);
}

extern "C" int pthread_attr_destroy(pthread_attr_t* attributes) {
  ++zedipc::test::destroyed;
  return zedipc::test::next<decltype(&pthread_attr_destroy)>("pthread_attr_destroy")(attributes);
}
