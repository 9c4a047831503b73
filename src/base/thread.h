// SPDX-License-Identifier: MIT
// Starting threads.
#pragma once

#include <pthread.h>

namespace zedipc {

// How the start of a thread went: the system's error number, 0 for none, and the call that
// gave it.
struct ThreadStart {
  const char* call;
  int error;
};

// Nobody joins the thread, unless it is to be stored in `joinable`.
inline ThreadStart start_thread(void* (*function)(void*), void* argument,
                                pthread_t* joinable = nullptr) {
  pthread_attr_t attributes;
  if (const int error = pthread_attr_init(&attributes)) return {"pthread_attr_init", error};
  if (joinable == nullptr) pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  pthread_t thread;
  const int error =
      pthread_create(joinable == nullptr ? &thread : joinable, &attributes, function, argument);
  pthread_attr_destroy(&attributes);
  return {"pthread_create", error};
}

}  // namespace zedipc
