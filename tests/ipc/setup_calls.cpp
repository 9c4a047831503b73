// SPDX-License-Identifier: MIT
#include "ipc/setup_calls.h"

#include <gtest/gtest.h>
#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <utility>

#include "support/next_function.h"

namespace zedipc::test {

namespace {

struct State {
  int lookup_error = 0;
  std::vector<AddressAndPort> addresses;
  std::vector<Lookup> lookups;
  int bind_error = 0;
  int listen_error = 0;
  int getsockname_error = 0;
  int credentials_error = 0;
  int accept_error = 0;
  int accept_calls = 0;
};

State state;

int fail(int error) {
  errno = error;
  return -1;
}

int real_getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                     addrinfo** list) {
  static const auto real =
      next<int (*)(const char*, const char*, const addrinfo*, addrinfo**)>("getaddrinfo");
  return real(node, service, hints, list);
}

// The lists of single addresses, chained: each entry is a piece of memory of its own,
// so freeing the chain frees them all.
addrinfo* chain(const std::string& service) {
  addrinfo* head = nullptr;
  addrinfo** tail = &head;
  for (const auto& [address, port] : state.addresses) {
    addrinfo hints{};
    hints.ai_flags = AI_NUMERICHOST;
    hints.ai_socktype = SOCK_STREAM;
    const std::string number = port == 0 ? service : std::to_string(port);
    EXPECT_EQ(real_getaddrinfo(address.c_str(), number.c_str(), &hints, tail), 0) << address;
    while (*tail != nullptr) tail = &(*tail)->ai_next;
  }
  return head;
}

}  // namespace

SetupCalls::SetupCalls() { state = State(); }
SetupCalls::~SetupCalls() { state = State(); }

void SetupCalls::fail_lookups(int error) { state.lookup_error = error; }
void SetupCalls::resolve_to(const std::vector<AddressAndPort>& addresses) {
  state.addresses = addresses;
}
std::vector<Lookup> SetupCalls::lookups() const { return state.lookups; }
void SetupCalls::fail_bind(int error) { state.bind_error = error; }
void SetupCalls::fail_listen(int error) { state.listen_error = error; }
void SetupCalls::fail_getsockname(int error) { state.getsockname_error = error; }
void SetupCalls::fail_credentials(int error) { state.credentials_error = error; }
void SetupCalls::fail_accept_once(int error) { state.accept_error = error; }
int SetupCalls::accept_calls() const { return state.accept_calls; }

}  // namespace zedipc::test

using namespace zedipc::test;

extern "C" int getaddrinfo(const char* node, const char* service, const addrinfo* hints,
                           addrinfo** list) {
  const std::string name = node == nullptr ? "(null)" : node;
  state.lookups.push_back({name + "|" + service, hints->ai_flags, hints->ai_family,
                           hints->ai_socktype, hints->ai_protocol});
  if (state.lookup_error != 0) return state.lookup_error;
  if (state.addresses.empty()) return real_getaddrinfo(node, service, hints, list);
  *list = chain(service);
  return 0;
}

extern "C" int bind(int fd, const sockaddr* address, socklen_t length) noexcept {
  static const auto real = next<int (*)(int, const sockaddr*, socklen_t)>("bind");
  return state.bind_error != 0 ? fail(state.bind_error) : real(fd, address, length);
}

extern "C" int listen(int fd, int backlog) noexcept {
  static const auto real = next<int (*)(int, int)>("listen");
  return state.listen_error != 0 ? fail(state.listen_error) : real(fd, backlog);
}

extern "C" int getsockname(int fd, sockaddr* address, socklen_t* length) noexcept {
  static const auto real = next<int (*)(int, sockaddr*, socklen_t*)>("getsockname");
  return state.getsockname_error != 0 ? fail(state.getsockname_error) : real(fd, address, length);
}

extern "C" int getsockopt(int fd, int level, int name, void* value, socklen_t* length) noexcept {
  static const auto real = next<int (*)(int, int, int, void*, socklen_t*)>("getsockopt");
  if (level == SOL_SOCKET && name == SO_PEERCRED && state.credentials_error != 0) {
    return fail(state.credentials_error);
  }
  return real(fd, level, name, value, length);
}

extern "C" int accept4(int fd, sockaddr* address, socklen_t* length, int flags) {
  static const auto real = next<int (*)(int, sockaddr*, socklen_t*, int)>("accept4");
  ++state.accept_calls;
  if (state.accept_error != 0) return fail(std::exchange(state.accept_error, 0));
  return real(fd, address, length, flags);
}
