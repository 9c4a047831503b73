// SPDX-License-Identifier: MIT
// The descriptors of one select.
#pragma once

#include <sys/select.h>

#include <algorithm>
#include <cstdlib>

#ifdef __GLIBC__
// The check in the system's own FD_SET, which not every build type switches on.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-redundant-declaration)
extern "C" long __fdelt_chk(long fd);
#endif

namespace zedipc {

class WatchSet {
 public:
  WatchSet() { clear(); }
  void clear() {
    FD_ZERO(&set_);
    highest_ = 0;
  }
  void add(int fd) {
    check_range(fd);
    FD_SET(fd, &set_);
    highest_ = std::max(highest_, fd);
  }
  [[nodiscard]] bool has(int fd) const {
    check_range(fd);
    return FD_ISSET(fd, &set_);
  }
  [[nodiscard]] int highest() const { return highest_; }
  int select() { return ::select(highest_ + 1, &set_, nullptr, nullptr, nullptr); }

 private:
  // A set has room for FD_SETSIZE descriptors, and beyond them the process ends. The tests
  // of this end with it, before coverage is written.
  static void check_range(int fd) {
    if (fd < FD_SETSIZE) return;
#ifdef __GLIBC__
    __fdelt_chk(fd);
#endif
    std::abort();
  }

  fd_set set_;
  int highest_;
};

}  // namespace zedipc
