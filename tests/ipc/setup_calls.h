// SPDX-License-Identifier: MIT
// The system's answers while channels are set up, where a test cannot have the system
// give them. A program that is built with setup_calls.cpp makes these calls itself.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace zedipc::test {

// What was asked of getaddrinfo, as "node|service", with "(null)" for no node, and the
// hints.
struct Lookup {
  std::string question;
  int flags;
  int family;
  int socktype;
  int protocol;
};

using AddressAndPort = std::pair<std::string, unsigned short>;

// While it lives, calls are answered as told; without being told they are made.
// One at a time, and for one thread.
class SetupCalls {
 public:
  SetupCalls();
  ~SetupCalls();
  SetupCalls(const SetupCalls&) = delete;
  SetupCalls& operator=(const SetupCalls&) = delete;

  // All lookups give this error.
  void fail_lookups(int error);
  // All lookups give these addresses, in this order; a port of 0 is the one asked for.
  void resolve_to(const std::vector<AddressAndPort>& addresses);
  [[nodiscard]] std::vector<Lookup> lookups() const;

  // The calls fail with this errno.
  void fail_bind(int error);
  void fail_listen(int error);
  void fail_getsockname(int error);
  // The kernel does not tell who the peer is.
  void fail_credentials(int error);
  // The next accept alone fails.
  void fail_accept_once(int error);
  [[nodiscard]] int accept_calls() const;
};

}  // namespace zedipc::test
