// SPDX-License-Identifier: MIT
// A client with registrations and its server, for tests of what arrives.
#pragma once

#include "script.h"

namespace zedipc::test {

// Registers callbacks of the name "n", and plays their server.
class Script {
 public:
  // A recorder of its own for each registration.
  Recorder& receive_as(const std::string& to, int priority, const std::string& name = "n") {
    Recorder& recorder = immortal<Recorder>();
    EXPECT_EQ(ipcRegisterNotificationCB(name, Recorder::notified, &recorder, priority, to), 0);
    next("register");
    return recorder;
  }

  Blocker& block_as(const std::string& to, int priority, const std::string& name = "n") {
    Blocker& blocker = immortal<Blocker>();
    EXPECT_EQ(ipcRegisterNotificationCB(name, Blocker::notified, &blocker, priority, to), 0);
    next("register");
    return blocker;
  }

  RawPeer& server() {
    if (!server_.connected()) server_ = listener_.accept(20000);
    return server_;
  }
  RawListener& listener() { return listener_; }

  void send(const std::string& message) { server().send_message(message); }

  // Waits until the client has dealt with everything that was sent, unregisters what is
  // registered as one of `names`, and so waits for all their callbacks to end.
  void settle(const Lines& names, const std::string& name = "n") {
    expect_reader_ready(server());
    for (const std::string& to : names) {
      EXPECT_EQ(ipcUnregisterNotificationCB(name, nullptr, nullptr, to), 0);
      EXPECT_EQ(server().receive_message(), unregistration(to, name));
    }
  }

  // Takes the next message, which has this type.
  std::string next(const std::string& type) {
    std::string message = server().receive_message();
    EXPECT_NE(message.find(R"("type":")" + type + R"("})"), std::string::npos) << message;
    return message;
  }

 private:
  RawListener listener_;
  RawPeer server_;
};

}  // namespace zedipc::test
