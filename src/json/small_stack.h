// SPDX-License-Identifier: MIT
// A stack for walking nested values: shallow walks stay on the thread's stack, deep
// ones go on in the heap, so that nesting never costs more than a fixed amount of the
// thread's stack.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

namespace zedipc {

template <typename T, std::size_t kInline = 24>
class SmallStack {
 public:
  [[nodiscard]] bool empty() const { return size_ == 0; }

  void push(const T& value) {
    if (size_ < kInline) {
      inline_[size_] = value;
    } else {
      overflow_.push_back(value);
    }
    ++size_;
  }

  // The last one pushed; there must be one. Valid until the next push or pop.
  T& top() { return size_ <= kInline ? inline_[size_ - 1] : overflow_.back(); }

  void pop() {
    if (size_ > kInline) overflow_.pop_back();
    --size_;
  }

 private:
  std::array<T, kInline> inline_;  // the first `size_` are in use
  std::vector<T> overflow_;
  std::size_t size_ = 0;
};

}  // namespace zedipc
