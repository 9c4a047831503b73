// SPDX-License-Identifier: MIT
// Receives notifications. Several displays can run at a time: what is sent to one
// receiver goes to the one whose name it bears, or to the highest priority.
//
//   display NAME PRIORITY
#include <zedipc/notify.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "program.h"

namespace {

constexpr char kNotification[] = "paper.out";

// Runs on a thread of its own for each notification, several at a time: whatever it
// shares with others needs a lock. `data` is what was given at the registration.
void on_notification(void* data, const std::string& from, const std::string& to,
                     const std::string& notification, const zedipc::JSObject& parameter,
                     unsigned int /*flags*/) {
  std::printf("%s: got %s from %s to %s: %s\n", static_cast<const char*>(data),
              notification.c_str(), from.c_str(), to.c_str(), parameter.dump().c_str());
}

bool read_number(const char* text, int& number) {
  char* end = nullptr;
  errno = 0;
  const long value = std::strtol(text, &end, 10);
  if (end == text || *end != '\0' || errno != 0 || value < INT_MIN || value > INT_MAX) {
    return false;
  }
  number = static_cast<int>(value);
  return true;
}

// As destinations these two mean everybody, and the highest priority.
bool is_name(const std::string& text) { return !text.empty() && text != "*" && text != "1"; }

}  // namespace

int main(int argc, char** argv) {
  int priority = 0;
  if (argc != 3 || !is_name(argv[1]) || !read_number(argv[2], priority)) {
    std::fprintf(stderr,
                 "usage: display NAME PRIORITY\n"
                 "  NAME      any text but * and 1, which mean everybody and the best\n"
                 "  PRIORITY  a whole number; the highest one is the best\n");
    return example::kUsage;
  }
  char* const name = argv[1];  // lives as long as the process, so callbacks may use it
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const example::EndSignal end;

  // The name under which this process receives. Should the server go away and return,
  // the library connects again and registers again; nothing here has to care.
  zedipc::ipcSetAppID(name);
  if (zedipc::ipcRegisterNotificationCB(kNotification, on_notification, name, priority) !=
      zedipc::kNotifyDone) {
    std::fprintf(stderr, "%s: cannot register for %s: %s\n", name, kNotification,
                 example::no_server().c_str());
    return example::kFailed;
  }
  std::printf("%s: registered for %s with priority %d\n", name, kNotification, priority);

  end.wait();
  // Returns when no callback runs any more.
  zedipc::ipcUnregisterNotificationCB(kNotification, on_notification, name);
  std::printf("%s: ended\n", name);
  return example::kDone;
}
