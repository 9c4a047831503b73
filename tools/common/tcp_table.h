// SPDX-License-Identifier: MIT
// The system's TCP sockets, and whose they are, as /proc tells.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace common {

constexpr std::uint16_t kPort = 5899;

struct TcpSocket {
  std::string local_address;  // hexadecimal, as the kernel writes it
  std::uint16_t local_port;
  std::uint16_t remote_port;
  bool listening;
  unsigned long unread;  // bytes that have come and wait to be read
  uid_t uid;
  unsigned long inode;
};

// All TCP sockets of this network namespace.
std::vector<TcpSocket> tcp_sockets();

// Those that a process holds; none if its descriptors cannot be looked at.
std::vector<TcpSocket> tcp_sockets_of(pid_t pid);

// Whether the process listens on the port.
bool listens(pid_t pid);

// Its own port of the connection to the notification server that a process holds, 0 if
// it has none.
std::uint16_t client_port(pid_t pid);

// The server's end of the connection from this port, if the server process has accepted it
// and not yet closed it.
std::optional<TcpSocket> session(pid_t server, std::uint16_t client_port);

// Who keeps others from opening the port on 127.0.0.1, or on all addresses, as in "process
// 1234 (server rules.txt)"; "" if none can be seen.
std::string describe_port_owner(bool any_address = false);

}  // namespace common
