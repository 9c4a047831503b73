// SPDX-License-Identifier: MIT
// Socket addresses as text, as remote_addr() and local_addr() show them.
#include "ipc/sockaddr_text.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <cstdio>
#include <cstring>

namespace zedipc {

namespace {

void format(char* out, int family, const void* address, in_port_t port, const char* pattern) {
  char text[INET6_ADDRSTRLEN];
  *out = '\0';
  if (inet_ntop(family, address, text, sizeof text) == nullptr) return;
  const int length = std::snprintf(out, kSockaddrText, pattern, text, ntohs(port));
  if (length < 0 || static_cast<std::size_t>(length) >= kSockaddrText) *out = '\0';
}

}  // namespace

void sockaddr_text(char* out, const sockaddr* sa) {
  if (out == nullptr) return;
  *out = '\0';
  if (sa->sa_family == AF_INET) {
    sockaddr_in in;
    std::memcpy(&in, sa, sizeof in);
    format(out, AF_INET, &in.sin_addr, in.sin_port, "%s:%d");
  } else if (sa->sa_family == AF_INET6) {
    sockaddr_in6 in;
    std::memcpy(&in, sa, sizeof in);
    if (IN6_IS_ADDR_V4MAPPED(&in.sin6_addr)) {
      format(out, AF_INET, &in.sin6_addr.s6_addr[12], in.sin6_port, "%s:%d");
    } else {
      format(out, AF_INET6, &in.sin6_addr, in.sin6_port, "[%s]:%d");
    }
  }
}

}  // namespace zedipc
