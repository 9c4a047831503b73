// SPDX-License-Identifier: MIT
// Runs a program in a network namespace of its own, with the loopback interface up,
// so that tests can have port 5899 for themselves, side by side and beside a live
// server. Where the system does not allow that, runs it as it is.
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/own_namespace.h"

namespace {

bool raise_loopback() {
  const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  ifreq request{};
  std::strcpy(request.ifr_name, "lo");
  request.ifr_flags = IFF_UP;
  const bool up = ioctl(fd, SIOCSIFFLAGS, &request) == 0;
  close(fd);
  return up;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: private_network PROGRAM [ARGUMENT ...]\n");
    return 2;
  }
  if (zedipc::test::enter_namespace(CLONE_NEWNET) && !raise_loopback()) {
    std::fprintf(stderr, "private_network: cannot raise the loopback interface: %s\n",
                 std::strerror(errno));
    return 1;
  }
  execvp(argv[1], argv + 1);
  std::fprintf(stderr, "private_network: cannot run %s: %s\n", argv[1], std::strerror(errno));
  return 1;
}
