// SPDX-License-Identifier: MIT
// What the tests of the client share: the texts of messages, a server played by hand,
// and callbacks that can be watched.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zedipc/notify.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <cstdlib>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/child.h"
#include "support/log_lines.h"
#include "support/raw_peer.h"
#include "support/task.h"

namespace zedipc::test {

using Lines = std::vector<std::string>;

// Whoever runs the tests may use the service too.
inline const bool environment_is_cleared = [] {
  for (const char* name : {"IPC_LOGMASK", "NFY_LOGMASK", "NOTIFY_SERVER"}) unsetenv(name);
  return true;
}();

// An object that is never freed: the thread of a callback may still be on its last
// lines in it when the test has ended. And a server that is made so does not end before
// the process does, which the log would tell of.
template <typename T>
T& immortal() {
  static std::deque<T>& all = *new std::deque<T>;
  return all.emplace_back();
}

// ---- Messages

inline std::string registration(const std::string& to, const std::string& notification,
                                int priority) {
  return R"({"notification":")" + notification + R"(","priority":)" + std::to_string(priority) +
         R"(,"to":")" + to + R"(","type":"register"})";
}

inline std::string unregistration(const std::string& to, const std::string& notification) {
  return R"({"notification":")" + notification + R"(","to":")" + to + R"(","type":"unregister"})";
}

inline const std::string kObserverOn = R"({"type":"register_observer"})";
inline const std::string kObserverOff = R"({"type":"unregister_observer"})";

// A notification from "f" with the parameter null, which callbacks see as call_of() has it.
inline std::string notification(const std::string& to, const std::string& name,
                                const std::string& type = "notify") {
  return R"({"flags":0,"from":"f","notification":")" + name + R"(","parameter":null,"to":")" + to +
         R"(","type":")" + type + R"("})";
}

inline std::string observation(const std::string& to, const std::string& name) {
  return R"({"flags":0,"from":"f","notification":")" + name + R"(","to":")" + to +
         R"(","type":"notify_observer"})";
}

inline std::string call_of(const std::string& to, const std::string& name) {
  return "f>" + to + ":" + name + " null 0";
}

// ---- The server, played by hand

// Nothing has been sent that nobody has received: what the client sends now comes next.
inline void expect_nothing_sent(const RawPeer& server) {
  EXPECT_EQ(ipcNotify("*", "marker", JSObject(), 0, "f"), 0);
  EXPECT_EQ(server.receive_message(), notification("*", "marker"));
}

// The client has dealt with everything that it was sent before, and is well: it returns
// what it has no callback for. Nothing else was sent back.
inline void expect_reader_ready(const RawPeer& server) {
  server.send_message(notification("nobody", "unknown"));
  EXPECT_EQ(server.receive_message(), notification("nobody", "unknown"));
}

// Nobody has connected who was not accepted: a connection made now comes next.
inline void expect_no_connection(const RawListener& listener) {
  const RawPeer probe = RawPeer::connect();
  probe.send("probe");
  EXPECT_EQ(listener.accept().receive(5), "probe");
}

// Ends a connection of which everything has been received, and waits until the client
// has none any more.
inline void lose(RawPeer& server) {
  shutdown(server.fd(), SHUT_WR);
  EXPECT_TRUE(server.at_end());
  server.close();
}

// ---- Callbacks

// Keeps what its callbacks are told.
class Recorder {
 public:
  static void notified(void* data, const std::string& from, const std::string& to,
                       const std::string& name, const JSObject& parameter, unsigned int flags) {
    static_cast<Recorder*>(data)->add(from + ">" + to + ":" + name + " " + parameter.dump() + " " +
                                      std::to_string(flags));
  }
  static void observed(void* data, const std::string& from, const std::string& to,
                       const std::string& name, unsigned int flags) {
    static_cast<Recorder*>(data)->add(from + ">" + to + ":" + name + " " + std::to_string(flags));
  }

  // All calls so far, of which there are at least `count` after at most 10 seconds, in
  // the order of their texts: invocations have no order.
  Lines calls(std::size_t count = 0) {
    std::unique_lock<std::mutex> lock(mutex_);
    changed_.wait_for(lock, std::chrono::seconds(10), [&] { return calls_.size() >= count; });
    Lines result = calls_;
    std::sort(result.begin(), result.end());
    return result;
  }

 private:
  void add(const std::string& call) {
    const std::lock_guard<std::mutex> lock(mutex_);
    calls_.push_back(call);
    changed_.notify_all();
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  Lines calls_;
};

// Its callbacks stay in the call until they are let go.
class Blocker {
 public:
  static void notified(void* data, const std::string&, const std::string&, const std::string&,
                       const JSObject&, unsigned int) {
    static_cast<Blocker*>(data)->stay();
  }
  static void observed(void* data, const std::string&, const std::string&, const std::string&,
                       unsigned int) {
    static_cast<Blocker*>(data)->stay();
  }

  // Waits until `count` calls have begun.
  bool entered(int count = 1) {
    return eventually([&] { return begun_ >= count; });
  }
  // Lets all calls go on, later ones too.
  void release() { released_ = true; }
  // How many calls have come to their end.
  [[nodiscard]] int ended() const { return ended_; }

 private:
  void stay() {
    ++begun_;
    EXPECT_TRUE(eventually([&] { return released_.load(); }, 40000));
    ++ended_;
  }

  std::atomic<int> begun_{0};
  std::atomic<int> ended_{0};
  std::atomic<bool> released_{false};
};

inline void do_nothing(void*, const std::string&, const std::string&, const std::string&,
                       const JSObject&, unsigned int) {}
inline void do_nothing_else(void*, const std::string&, const std::string&, const std::string&,
                            const JSObject&, unsigned int) {}
inline void ignore_observation(void*, const std::string&, const std::string&, const std::string&,
                               unsigned int) {}
inline void ignore_observation_too(void*, const std::string&, const std::string&,
                                   const std::string&, unsigned int) {}

// ---- The log

// The client's own log lines of a process, whose text was `err`.
inline Lines client_log(const std::string& err, const std::string& level = "") {
  return log_messages(err, level, "NFYCL");
}

// Broadcasts a notification.
inline int say(const std::string& name) { return ipcNotify("*", name, JSObject(), 0, "f"); }

// To be told apart by their addresses.
inline int some_data;
inline int first_data;
inline int second_data;

// All levels of the notification channels.
inline const Environment kAllLevels = {{"NFY_LOGMASK", "255"}};

}  // namespace zedipc::test
