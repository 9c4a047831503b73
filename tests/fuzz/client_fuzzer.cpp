// SPDX-License-Identifier: MIT
// What a server sends to a client, and the callbacks that it starts.
//
// An input is a line that begins with a digit, which says what is registered (1 for
// notifications, 2 for observers, 4 for unicast errors, added up; with 8 or 9 for none or
// notifications the server is gone before anything is sent back), and then a line for
// each thing that the server sends: h, m or r. Behind the last one the stream ends.
#include <sys/socket.h>
#include <zedipc/jsobject.h>
#include <zedipc/notify.h>

#include <atomic>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/frame_stream.h"
#include "fuzz/harness.h"
#include "fuzz/notify_script.h"
#include "notifyclient/client_state.h"
#include "notifyclient/connection.h"
#include "protocol/protocol.h"
#include "support/raw_peer.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kMaxLines = 12;  // each may start some threads

// What the callbacks of a registration were told: how many times, and a sum that
// whatever they were told goes into, in no order.
struct Told {
  std::atomic<unsigned> calls{0};
  std::atomic<std::size_t> sum{0};

  void add(const std::string& words, unsigned flags) {
    ++calls;
    sum += std::hash<std::string>()(words + std::to_string(flags));
  }
};

bool same(const Told& a, const Told& b) { return a.calls == b.calls && a.sum == b.sum; }

struct Registered {
  const char* to;
  const char* notification;
  int priority;
};

// In the order in which they are registered.
constexpr Registered kRegistered[] = {
    {"t", "n", 1}, {"t", "n", 2}, {"u", "n", 2}, {"u", "m", -7}, {"null", "null", 0}};
constexpr std::size_t kRegistrations = sizeof kRegistered / sizeof *kRegistered;

struct Totals {
  Told notified[kRegistrations];
  Told errors[2];
  Told observed[2];
};

std::string words(const std::string& from, const std::string& to, const std::string& notification,
                  const std::string& parameter) {
  return from + "\n" + to + "\n" + notification + "\n" + parameter + "\n";
}

void notified(void* data, const std::string& from, const std::string& to,
              const std::string& notification, const JSObject& parameter, unsigned int flags) {
  static_cast<Told*>(data)->add(words(from, to, notification, parameter.dump()), flags);
}

void observed(void* data, const std::string& from, const std::string& to,
              const std::string& notification, unsigned int flags) {
  static_cast<Told*>(data)->add(words(from, to, notification, ""), flags);
}

struct Options {
  bool notifications;
  bool observers;
  bool errors;
  bool server_gone;
};

Options read_options(const std::string& line) {
  const unsigned digit = line.empty() ? 0 : static_cast<unsigned char>(line[0]) - unsigned{'0'};
  return {(digit & 1) != 0, (digit & 2) != 0, (digit & 4) != 0, (digit & 8) != 0};
}

void register_all(const Options& options, Totals& totals) {
  for (std::size_t i = 0; options.notifications && i < kRegistrations; ++i) {
    const Registered& r = kRegistered[i];
    ipcRegisterNotificationCB(r.notification, notified, &totals.notified[i], r.priority, r.to);
  }
  for (Told& told : totals.observed) {
    if (options.observers) ipcRegisterObserver(observed, &told);
  }
  for (Told& told : totals.errors) {
    if (options.errors) ipcRegisterUnicastError(notified, &told);
  }
}

// A connection that is in use.
Connection* use(PlayedChannel* channel) {
  auto* const connection = new Connection(std::unique_ptr<TCP>(channel));
  const MutexLock lock(table_lock);
  connection->stage = Connection::Stage::kInUse;
  client.server_ipc = connection;
  return connection;
}

// Over a connection of its own. Waits for the end of all callbacks.
void unregister_all() {
  std::string sent;
  auto* const channel = new PlayedChannel(-1, "");
  channel->record_to(&sent);
  const std::unique_ptr<Connection> connection(use(channel));
  for (const Registered& r : kRegistered) {
    ipcUnregisterNotificationCB(r.notification, nullptr, nullptr, r.to);
  }
  ipcUnregisterObserver(nullptr);
  ipcUnregisterUnicastError(nullptr);
  client.server_ipc = nullptr;
}

// What is to come of a stream, by a second, plain reading of the messages.
class Expectation {
 public:
  explicit Expectation(const Options& options) : options_(options) {}

  void read(const std::string& stream) {
    FrameStream frames(stream);
    for (;;) {
      const FrameStream::Result frame = frames.next(kNotifyFrame, kNotifyLimit);
      if (!frame.whole) return;
      JSObject message;
      message.parse(frame.payload.c_str());
      handle(message);
    }
  }

  Totals totals;
  std::vector<std::string> sent_back;

 private:
  void handle(JSObject& message) {
    const std::string type = member(message, "type");
    if (type == kTypeNotify) {
      notify(message);
    } else if (type == kTypeUnicastError && options_.errors) {
      for (Told& told : totals.errors) tell(told, message, true);
    } else if (type == kTypeNotifyObserver && options_.observers) {
      for (Told& told : totals.observed) tell(told, message, false);
    }
  }

  void notify(JSObject& message) {
    if (!options_.notifications) {
      sent_back.push_back(message.dump());
      return;
    }
    const std::string to = member(message, "to");
    const std::string notification = member(message, "notification");
    int best = -1;
    for (int i = 0; i < static_cast<int>(kRegistrations); ++i) {
      const Registered& r = kRegistered[i];
      if (notification != r.notification) continue;
      if (to == kToAll) {
        tell(totals.notified[i], message, true);
      } else if (to == kToHighestPriority || to == r.to) {
        if (best < 0 || r.priority >= kRegistered[best].priority) best = i;
      }
    }
    if (best >= 0) {
      tell(totals.notified[best], message, true);
    } else if (to != kToAll) {
      for (const char* const key : {"from", "flags", "parameter"}) member(message, key);
      sent_back.push_back(message.dump());
    }
  }

  static void tell(Told& told, JSObject& message, bool with_parameter) {
    const std::string parameter = with_parameter ? message("parameter").dump() : "";
    told.add(words(member(message, "from"), member(message, "to"), member(message, "notification"),
                   parameter),
             static_cast<unsigned>(message("flags").getInt()));
  }

  const Options options_;
};

void expect_same(const Totals& actual, const Totals& expected) {
  for (std::size_t i = 0; i < kRegistrations; ++i) {
    require(same(actual.notified[i], expected.notified[i]), "notifications reach their callbacks");
  }
  for (std::size_t i = 0; i < 2; ++i) {
    require(same(actual.errors[i], expected.errors[i]), "unicast errors reach all callbacks");
    require(same(actual.observed[i], expected.observed[i]), "observers are told of everything");
  }
}

std::string read_stream(Input& input) {
  std::string stream;
  for (int i = 0; i < kMaxLines && !input.empty(); ++i) stream += bytes_of(input.line());
  return stream;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const Options options = read_options(input.line());
  const std::string stream = read_stream(input);
  Expectation expected(options);
  expected.read(stream);

  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there is a socket pair");
  RawPeer peer(ends[1]);
  std::string sent;
  auto* const channel = new PlayedChannel(ends[0], "127.0.0.1:5899");
  channel->record_to(&sent);
  const std::unique_ptr<Connection> connection(use(channel));
  Totals totals;
  register_all(options, totals);
  sent.clear();
  if (!stream.empty()) peer.send(stream);
  if (options.server_gone) channel->record_to(nullptr);
  peer.close();
  const LogChannelScope scope(kLogNotifyClient);
  require(serve_connection(*connection), "the connection was in use");
  require(client.server_ipc == nullptr, "a connection that has ended is gone");
  unregister_all();

  expect_same(totals, expected.totals);
  if (!options.server_gone) {
    require(messages_in(sent) == expected.sent_back, "what nobody takes is sent back");
  }
  return 0;
}
