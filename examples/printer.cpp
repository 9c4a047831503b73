// SPDX-License-Identifier: MIT
// Sends notifications.
//
//   printer TO NOTIFICATION [PARAMETER]    sends one
//   printer                                sends one for each line of standard input,
//                                          which holds the same three words
//
// TO is a receiver's name, "*" for everybody, or "1" for the highest priority; PARAMETER
// is JSON. The exit status is 1 if something could not be sent, or nobody took it.
#include <unistd.h>
#include <zedipc/notify.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>

#include "program.h"

namespace {

constexpr char kLast[] = "printer.last";

std::atomic<bool> failed{false};
bool any_sent = false;
std::promise<void> came_back;

// Runs for each notification to one receiver that nobody took, also for one that could
// not even be sent.
void on_nobody(void* /*data*/, const std::string& /*from*/, const std::string& to,
               const std::string& notification, const zedipc::JSObject& parameter,
               unsigned int /*flags*/) {
  failed = true;
  std::printf("printer: nobody took %s to %s: %s\n", notification.c_str(), to.c_str(),
              parameter.dump().c_str());
}

bool send(const std::string& to, const std::string& notification, const std::string& json) {
  zedipc::JSObject parameter;
  if (!json.empty() && parameter.parse(json.c_str()) != static_cast<int>(json.size())) {
    std::fprintf(stderr, "printer: cannot send %s: this parameter is no JSON: %s\n",
                 notification.c_str(), json.c_str());
    return false;
  }
  std::printf("printer: sending %s to %s: %s\n", notification.c_str(), to.c_str(),
              parameter.dump().c_str());
  // It was written to the server; whether anybody takes it is another matter.
  if (zedipc::ipcNotify(to, notification, parameter) != zedipc::kNotifyDone) {
    std::fprintf(stderr, "printer: cannot send %s to %s: %s\n", notification.c_str(), to.c_str(),
                 example::no_server().c_str());
    return false;
  }
  any_sent = true;
  return true;
}

// Sends what a line says: two words, and the rest as the parameter.
bool send_line(const std::string& line) {
  std::istringstream words(line);
  std::string to;
  std::string notification;
  std::string json;
  words >> to >> notification >> std::ws;
  std::getline(words, json);
  if (notification.empty()) {
    std::fprintf(stderr, "printer: a line is TO NOTIFICATION [PARAMETER], not: %s\n", line.c_str());
    return false;
  }
  return send(to, notification, json);
}

void send_lines() {
  std::printf(
      "printer: ready for lines of TO NOTIFICATION [PARAMETER], as in: "
      "* paper.out {\"tray\":2}\n");
  for (std::string line; std::getline(std::cin, line);) {
    if (!line.empty() && !send_line(line)) failed = true;
  }
}

void on_last(void* /*data*/, const std::string& /*from*/, const std::string& /*to*/,
             const std::string& /*notification*/, const zedipc::JSObject& /*parameter*/,
             unsigned int /*flags*/) {
  came_back.set_value();
}

// Waits until it is known of everything sent so far whether anybody took it.
//
// The server confirms nothing. But it handles what one process sends in order, so that
// when a last notification to ourselves has come back, it is through with the others,
// and what it had to say about them has come too.
//
// Unregistering returns when no callback runs any more, so that none is cut off by the
// end of the process.
bool all_settled() {
  const std::string self = "printer." + std::to_string(getpid());
  const bool settled =
      zedipc::ipcRegisterNotificationCB(kLast, on_last, nullptr, 0, self) == zedipc::kNotifyDone &&
      zedipc::ipcNotify(self, kLast) == zedipc::kNotifyDone &&
      came_back.get_future().wait_for(std::chrono::seconds(5)) == std::future_status::ready;
  zedipc::ipcUnregisterNotificationCB(kLast, on_last, nullptr, self);
  return settled;
}

void finish() {
  if (any_sent && !all_settled()) {
    std::fprintf(stderr, "printer: cannot tell whether somebody took it all: %s\n",
                 example::no_server().c_str());
    failed = true;
  }
  // As above, this returns when the callbacks that run have ended.
  zedipc::ipcUnregisterUnicastError(on_nobody);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 || argc > 4) {
    std::fprintf(stderr,
                 "usage: printer [TO NOTIFICATION [PARAMETER]]\n"
                 "  TO         a name, * for everybody, or 1 for the highest priority\n"
                 "  PARAMETER  JSON, as in '{\"tray\":2}'\n"
                 "  Without arguments each line of standard input holds these three.\n");
    return example::kUsage;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const example::EndSignal end;
  std::thread([end] {  // the main thread waits for lines
    end.wait();
    std::printf("printer: ended\n");
    std::_Exit(example::kDone);
  })
      .detach();

  zedipc::ipcSetAppID("printer");
  zedipc::ipcRegisterUnicastError(on_nobody);
  if (argc == 1) {
    send_lines();
  } else if (!send(argv[1], argv[2], argc == 4 ? argv[3] : "")) {
    failed = true;
  }
  finish();
  return failed ? example::kFailed : example::kDone;
}
