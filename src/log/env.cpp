// SPDX-License-Identifier: MIT
// Reading the process's environment, one thread at a time.
#include "log/env.h"

#include <cstdlib>

#include "base/mutex.h"

namespace zedipc {

namespace {

Mutex env_lock;

}  // namespace

bool env_lookup(const char* name, std::string& value) {
  value.clear();
  if (name == nullptr) return false;
  const MutexLock lock(env_lock);
  const char* const text = std::getenv(name);
  if (text == nullptr) return false;
  value = text;
  return true;
}

}  // namespace zedipc
