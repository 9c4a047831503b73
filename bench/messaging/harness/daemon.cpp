// SPDX-License-Identifier: MIT
#include "harness/daemon.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <sstream>

namespace bench {

namespace {

// Users other than root lack /usr/sbin in their PATH.
std::string find_program(const std::string& name) {
  const char* const path = std::getenv("PATH");
  std::istringstream in(std::string(path == nullptr ? "" : path) + ":/usr/sbin");
  for (std::string directory; std::getline(in, directory, ':');) {
    const std::string program = directory + "/" + name;
    if (access(program.c_str(), X_OK) == 0) return program;
  }
  throw NotInstalled(name + " is not installed");
}

template <typename Address>
bool answers(const Address& address) {
  const auto* const generic = reinterpret_cast<const sockaddr*>(&address);
  const int fd = socket(generic->sa_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const bool connected = connect(fd, generic, sizeof address) == 0;
  close(fd);
  return connected;
}

}  // namespace

pid_t Daemon::start(const std::string& program, const std::vector<std::string>& arguments) {
  process_ = std::make_unique<demo::Process>(program, find_program(program), arguments);
  return process_->pid();
}

bool port_answers(unsigned short port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return answers(address);
}

bool path_answers(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  path.copy(address.sun_path, sizeof address.sun_path - 1);
  return answers(address);
}

}  // namespace bench
