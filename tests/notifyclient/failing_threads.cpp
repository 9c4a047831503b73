// SPDX-License-Identifier: MIT
#include "failing_threads.h"

#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>

namespace zedipc::test {

namespace {

std::atomic<int> threads_to_fail{0};
std::atomic<int> attributes_to_fail{0};

// Whether this call is one of those that fail.
bool take(std::atomic<int>& count) {
  int left = count;
  while (left > 0 && !count.compare_exchange_weak(left, left - 1)) {
  }
  return left > 0;
}

// The system's own function.
template <typename Function>
Function* original(const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

}  // namespace

void fail_threads(int count) { threads_to_fail = count; }

void fail_attributes(int count) { attributes_to_fail = count; }

}  // namespace zedipc::test

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*function)(void*), void* argument) {
  using namespace zedipc::test;
  if (take(threads_to_fail)) return EAGAIN;
  return original<decltype(pthread_create)>("pthread_create")(thread, attributes, function,
                                                              argument);
}

extern "C" int pthread_attr_init(pthread_attr_t* attributes) {
  using namespace zedipc::test;
  if (take(attributes_to_fail)) return ENOMEM;
  return original<decltype(pthread_attr_init)>("pthread_attr_init")(attributes);
}
