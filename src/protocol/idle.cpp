// SPDX-License-Identifier: MIT
// Giving memory back after large messages.
#include "protocol/idle.h"

#include <poll.h>

#include <cerrno>
#ifdef __GLIBC__
#include <malloc.h>
#endif

namespace zedipc {

namespace {

// Neither a smaller text nor the value that was made of it is worth the trouble.
constexpr std::size_t kLargeText = 16384;
constexpr int kIdleTime = 1000;  // milliseconds

// By the capacity, which lasts: small messages may follow the large one before the silence.
bool is_large(const std::string& text) { return text.capacity() >= kLargeText; }

bool is_idle(const IPC& connection) {
  pollfd pf{connection.getFD(), POLLIN, 0};
  int ready;
  do {
    ready = ::poll(&pf, 1, kIdleTime);
  } while (ready == -1 && errno == EINTR);
  return ready == 0;
}

}  // namespace

void release_large(std::string& text) {
  if (!is_large(text)) return;
  std::string().swap(text);
#ifdef __GLIBC__
  malloc_trim(0);  // takes milliseconds, and whoever allocates next pays again
#endif
}

void release_when_idle(const IPC& connection, std::string& text) {
  if (is_large(text) && is_idle(connection)) release_large(text);
}

}  // namespace zedipc
