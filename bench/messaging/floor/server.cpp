// SPDX-License-Identifier: MIT
#include "floor/server.h"

#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "floor/frame.h"
#include "floor/message.h"

namespace bench::floor_subject {

namespace {

struct Registration {
  int fd;
  std::string to;
  std::string notification;
};

struct {
  std::mutex lock;
  std::vector<Registration> registrations;
} server;

void broadcast(const Message& message, const std::string& text) {
  std::set<int> served;
  for (const Registration& row : server.registrations) {
    if (row.notification == message.notification && served.insert(row.fd).second) {
      send_frame(row.fd, text);
    }
  }
}

void unicast(const Message& message, const std::string& text) {
  const auto row = std::find_if(
      server.registrations.begin(), server.registrations.end(), [&](const Registration& r) {
        return r.to == message.to && r.notification == message.notification;
      });
  if (row != server.registrations.end()) send_frame(row->fd, text);
}

void handle(int fd, const std::string& text) {
  const Message message = read_message(text);
  const std::lock_guard<std::mutex> lock(server.lock);
  if (message.type == kRegister) {
    server.registrations.push_back({fd, message.to, message.notification});
  } else if (message.to == kToAll) {
    broadcast(message, text);
  } else {
    unicast(message, text);
  }
}

void session(int fd) {
  std::string text;
  while (receive_frame(fd, text)) handle(fd, text);
  const std::lock_guard<std::mutex> lock(server.lock);
  auto& rows = server.registrations;
  rows.erase(std::remove_if(rows.begin(), rows.end(),
                            [&](const Registration& row) { return row.fd == fd; }),
             rows.end());
  close(fd);
}

}  // namespace

void serve(unsigned short port) {
  const int listener = listen_on(port);
  for (;;) std::thread(session, accept_from(listener)).detach();
}

}  // namespace bench::floor_subject
