// SPDX-License-Identifier: MIT
#include "log/env.h"

#include <cstdlib>
#include <mutex>

namespace zedipc {

namespace {

std::mutex env_lock;

}  // namespace

bool env_lookup(const char* name, std::string& value) {
  value.clear();
  if (name == nullptr) return false;
  const std::lock_guard<std::mutex> lock(env_lock);
  const char* const text = std::getenv(name);
  if (text == nullptr) return false;
  value = text;
  return true;
}

}  // namespace zedipc
