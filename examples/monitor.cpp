// SPDX-License-Identifier: MIT
// Looks on: sees each notification that the server hands to a receiver, whoever sent it
// and whoever got it, but not its parameter.
//
//   monitor
#include <zedipc/notify.h>

#include <cstdio>
#include <map>
#include <mutex>
#include <string>

#include "program.h"

namespace {

// Callbacks run on threads of their own, so what they share has a lock.
struct Tally {
  std::mutex lock;
  std::map<std::string, int> deliveries;  // by receiver
};
Tally tally;

// `to` is the receiver's name, also if the sender wrote "*" or "1".
void on_delivery(void* /*data*/, const std::string& from, const std::string& to,
                 const std::string& notification, unsigned int /*flags*/) {
  std::printf("monitor: saw %s from %s to %s\n", notification.c_str(), from.c_str(), to.c_str());
  const std::lock_guard<std::mutex> guard(tally.lock);
  ++tally.deliveries[to];
}

std::string reason(int result) {
  if (result == zedipc::kNotifyRemoteObserver) {
    return "only a process on the server's own machine may observe, and NOTIFY_SERVER is \"" +
           example::server_host() + "\". Make it 127.0.0.1 or localhost, or unset it.";
  }
  return example::no_server();
}

}  // namespace

int main(int argc, char** /*argv*/) {
  if (argc != 1) {
    std::fprintf(stderr, "usage: monitor\n");
    return example::kUsage;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const example::EndSignal end;

  // An observer needs no name of its own.
  const int result = zedipc::ipcRegisterObserver(on_delivery);
  if (result != zedipc::kNotifyDone) {
    std::fprintf(stderr, "monitor: cannot observe: %s\n", reason(result).c_str());
    return example::kFailed;
  }
  std::printf("monitor: observing\n");

  end.wait();
  zedipc::ipcUnregisterObserver(on_delivery);  // returns when no callback runs any more
  for (const auto& [receiver, count] : tally.deliveries) {
    std::printf("monitor: %d to %s in all\n", count, receiver.c_str());
  }
  std::printf("monitor: ended\n");
  return example::kDone;
}
