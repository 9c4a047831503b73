// SPDX-License-Identifier: MIT
#include "soak/client.h"

#include <poll.h>
#include <unistd.h>
#include <zedipc/notify.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "soak/judge.h"
#include "support/instrumented.h"

namespace zedipc::soak {

namespace {

constexpr char kBase[] = "soak.open.base";  // registered for life, for the trips
constexpr char kPool[] = "pool";            // a name that many receive under
constexpr int kOpenNames = 5;
constexpr int kSlots = 2;
// With a sanitizer threads take so long that an observer, who gets one for each delivery,
// soon has thousands, until the system refuses it more: a call that is not made then.
constexpr int kSlower = test::kInstrumented ? 2 : 1;

// Short enough for a pipe to take it whole, whatever other threads write.
void report(const Event& event) {
  const std::string line = to_line(event) + "\n";
  if (write(STDOUT_FILENO, line.data(), line.size()) < 0) _exit(1);
}

void report(Event::Kind kind, Id id, const Record& record, int value = 0) {
  report({kind, now(), 0, id, record, value, 0});
}

// What a message carries besides its number: mostly little, sometimes much.
std::string fill_of(Id id) {
  const std::size_t size = id % 64 == 0 ? 20000 : id % 100;
  return std::string(size, static_cast<char>('a' + id % 26));
}

// The data of a callback.
struct Entry {
  Record record;
  bool standing = false;
};

bool is_for(const Record& record, const std::string& to, const std::string& notification) {
  return notification == record.name && (to == "*" || to == "1" || to == record.to);
}

void on_notification(void* data, const std::string& /*from*/, const std::string& to,
                     const std::string& notification, const JSObject& parameter,
                     unsigned int flags) {
  const Record& record = static_cast<Entry*>(data)->record;
  const bool intact = static_cast<Id>(parameter("id").getInt()) == flags &&
                      parameter("fill").getString() == fill_of(flags) &&
                      is_for(record, to, notification);
  report(intact ? Event::kReceived : Event::kAltered, flags, record);
}

void on_error(void* data, const std::string& /*from*/, const std::string& /*to*/,
              const std::string& /*notification*/, const JSObject& /*parameter*/,
              unsigned int flags) {
  report(Event::kReported, flags, static_cast<Entry*>(data)->record);
}

void on_observation(void* /*data*/, const std::string& /*from*/, const std::string& to,
                    const std::string& /*notification*/, unsigned int flags) {
  report(Event::kSeen, flags, {to, "", 0});
}

class Client {
 public:
  explicit Client(const ClientOptions& options)
      : name_(client_name(options.number)),
        life_(options.life),
        watcher_(options.number == 0),
        remote_(options.number >= kClients - kRemoteClients),
        observes_(options.number % 5 == 0 && !remote_),
        changes_(options.seed),
        sends_(options.seed + 1) {
    entries_.push_back({{name_, kBase, 0}});
    for (const std::string& to : {name_, std::string(kPool)}) {
      for (int slot = 0; slot < kSlots; ++slot) {
        for (int i = 0; i < kOpenNames; ++i) {
          entries_.push_back({{to, "soak.open." + std::to_string(i), slot}});
        }
        entries_.push_back({{to, kInside, slot}});
      }
    }
  }

  int run() {
    setenv("NOTIFY_SERVER", remote_ ? kRemoteHost : kLocalHost, 1);
    ipcSetAppID(name_);
    ipcRegisterUnicastError(on_error, &first_error_);
    while (!change(entries_.front(), true)) pause(changes_, 5, 20);
    while (watcher_ && !toggle_observer()) pause(changes_, 5, 20);
    if (!watcher_) {
      for (Entry& entry : entries_) {
        if (entry.record.to == name_ && entry.record.slot == 0) change(entry, true);
      }
      std::thread([this] { send_for_ever(); }).detach();
    }
    for (;;) {
      if (!watcher_ && !quiet_ && below(changes_, 5) == 0) change_something();
      send(name_, kBase);  // a trip
      if (!pause(changes_, 50 * kSlower, 150 * kSlower)) _exit(0);
    }
  }

 private:
  using Random = std::mt19937;

  static int below(Random& random, int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit));
  }

  // Waits at random, or until there is a line to read; false at the input's end.
  bool pause(Random& random, int least, int most) {
    pollfd input{quiet_ ? -1 : STDIN_FILENO, POLLIN, 0};
    if (poll(&input, 1, least + below(random, most - least)) != 1) return true;
    char line[64];
    quiet_ = true;
    return read(STDIN_FILENO, line, sizeof line) > 0;
  }

  void send(const std::string& to, const std::string& notification) {
    const Id id = make_id(life_, counter_++);
    JSObject parameter;
    parameter("id") = static_cast<int>(id);
    parameter("fill") = fill_of(id);
    report(Event::kSending, id, {to, notification, 0});
    const int result = ipcNotify(to, notification, parameter, id, id % 2 == 0 ? "" : name_);
    report(Event::kSent, id, {}, result);
  }

  void send_for_ever() {
    for (;;) {
      std::this_thread::sleep_for(std::chrono::milliseconds(kSlower * (20 + below(sends_, 160))));
      if (quiet_) continue;
      const int kind = below(sends_, 20);
      const std::string notification =
          below(sends_, 8) == 0 ? kInside
                                : "soak.open." + std::to_string(below(sends_, kOpenNames));
      if (kind == 0) {
        send("*", notification);
      } else if (kind < 5) {
        send("1", notification);
      } else if (kind < 8) {
        send(kPool, notification);
      } else {
        send(client_name(1 + below(sends_, kClients - 1)), notification);
      }
    }
  }

  void change_something() {
    const int what = below(changes_, 12);
    if (what == 0) {
      toggle_second_error();
    } else if (what == 1 && observes_) {
      toggle_observer();
    } else {
      Entry& entry = entries_[1 + static_cast<std::size_t>(
                                      below(changes_, static_cast<int>(entries_.size()) - 1))];
      change(entry, !entry.standing || below(changes_, 2) == 0);
    }
  }

  // Registers it, perhaps with another priority, or unregisters it.
  bool change(Entry& entry, bool stand) {
    const Record& record = entry.record;
    // So that something is often on its way to what goes.
    if (!stand && below(changes_, 2) == 0) send(record.to, record.name);
    const int priority = below(changes_, 12) - 4;
    report(stand ? Event::kRegistering : Event::kUnregistering, 0, record, priority);
    const int result =
        stand ? ipcRegisterNotificationCB(record.name, on_notification, &entry, priority, record.to)
              : ipcUnregisterNotificationCB(record.name, on_notification, &entry, record.to);
    report(stand ? Event::kRegistered : Event::kUnregistered, 0, record, result);
    if (result == 0) entry.standing = stand;
    return result == 0;
  }

  bool toggle_observer() {
    return toggle(
        observer_, [&] { return ipcRegisterObserver(on_observation, &observer_); },
        [&] { return ipcUnregisterObserver(on_observation, &observer_); });
  }

  bool toggle_second_error() {
    return toggle(
        second_error_, [&] { return ipcRegisterUnicastError(on_error, &second_error_); },
        [&] { return ipcUnregisterUnicastError(on_error, &second_error_); });
  }

  template <typename Register, typename Unregister>
  static bool toggle(Entry& entry, Register enter, Unregister leave) {
    const bool stand = !entry.standing;
    report(stand ? Event::kRegistering : Event::kUnregistering, 0, entry.record);
    const int result = stand ? enter() : leave();
    report(stand ? Event::kRegistered : Event::kUnregistered, 0, entry.record, result);
    // An observer that could not be taken back is removed from the client all the same.
    if (result == 0 || !stand) entry.standing = stand;
    return result == 0;
  }

  const std::string name_;
  const Life life_;
  const bool watcher_;
  const bool remote_;
  const bool observes_;  // at times; each observer costs a thread for each delivery
  Random changes_;
  Random sends_;
  std::atomic<std::uint32_t> counter_{0};
  std::atomic<bool> quiet_{false};
  std::vector<Entry> entries_;  // never grows: callbacks have pointers into it
  Entry observer_{kObserver};
  Entry first_error_{{"-", "error", 0}};
  Entry second_error_{kSecondErrorCallback};
};

}  // namespace

std::string client_name(int number) {
  char name[16];
  std::snprintf(name, sizeof name, "c%02d", number);
  return name;
}

int run_client(const ClientOptions& options) {
  // Threads of the library use it until the process ends.
  auto* const client = new Client(options);
  return client->run();
}

}  // namespace zedipc::soak
