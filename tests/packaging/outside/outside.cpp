// SPDX-License-Identifier: MIT
// Sends itself a notification through the server, and prints what arrives.
#include <zedipc/zedipc.h>

#include <chrono>
#include <cstdio>
#include <future>
#include <string>

static std::promise<int>& tray() {
  static std::promise<int> promise;
  return promise;
}

static void paper_out(void*, const std::string&, const std::string&, const std::string&,
                      const zedipc::JSObject& parameter, unsigned int) {
  tray().set_value(parameter("tray").getInt());
}

int main() {
  std::future<int> arrived = tray().get_future();
  zedipc::ipcSetAppID("outside");
  zedipc::JSObject parameter;
  parameter("tray") = 2;
  if (zedipc::ipcRegisterNotificationCB("paper.out", paper_out) != 0 ||
      zedipc::ipcNotify("outside", "paper.out", parameter) != 0) {
    std::fprintf(stderr, "outside: there is no server\n");
    return 1;
  }
  if (arrived.wait_for(std::chrono::seconds(60)) != std::future_status::ready) {
    std::fprintf(stderr, "outside: the notification does not arrive\n");
    return 1;
  }
  std::printf("tray %d\n", arrived.get());
}
