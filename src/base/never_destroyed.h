// SPDX-License-Identifier: MIT
// For what threads use until the process has gone, beyond the end of static objects.
#pragma once

#include <new>
#include <type_traits>

namespace zedipc {

// Holds a T that is made with this object and never destroyed.
template <typename T>
class NeverDestroyed {
 public:
  NeverDestroyed() { new (&storage_) T; }
  NeverDestroyed(const NeverDestroyed&) = delete;
  NeverDestroyed& operator=(const NeverDestroyed&) = delete;

  T& get() { return *std::launder(reinterpret_cast<T*>(&storage_)); }
  T& operator*() { return get(); }
  T* operator->() { return &get(); }

 private:
  alignas(T) unsigned char storage_[sizeof(T)];
};

}  // namespace zedipc
