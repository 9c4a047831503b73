// SPDX-License-Identifier: MIT
// Frames on bare sockets, by the system calls that the library makes: two sends for each
// frame, and a wait and a receive each for the header and the payload.
#pragma once

#include <string>

namespace bench::floor_subject {

bool send_frame(int fd, const std::string& text);
bool receive_frame(int fd, std::string& text);

// Sockets on 127.0.0.1 or, with a path, on the machine. These throw std::runtime_error if
// they fail.
int listen_on(unsigned short port);
int listen_on(const std::string& path);
int connect_to(unsigned short port);
int connect_to(const std::string& path);
int accept_from(int listener);

}  // namespace bench::floor_subject
