// SPDX-License-Identifier: MIT
// Socket addresses as text.
#pragma once

#include <sys/socket.h>

#include <cstddef>

namespace zedipc {

constexpr std::size_t kSockaddrText = 64;

// Writes address and port, as in 192.0.2.1:5899 or [2001:db8::1]:5899, to a field
// of kSockaddrText bytes; an IPv4-mapped address gives the plain IPv4 form. What
// has no such form gives the empty text.
void sockaddr_text(char* out, const sockaddr* sa);

}  // namespace zedipc
