// SPDX-License-Identifier: MIT
// D-Bus: libdbus and a dbus-daemon of its own. A unicast is a method call that wants no
// reply, a broadcast a signal; the payload is an array of bytes. Everything goes over
// local sockets, as on every bus.
#include <dbus/dbus.h>

#include <memory>
#include <stdexcept>
#include <string>

#include "harness/daemon.h"
#include "harness/subject.h"

namespace bench {

namespace {

constexpr char kReceiver[] = "bench.display";
constexpr char kPath[] = "/paper";
constexpr char kInterface[] = "bench.paper";
constexpr char kMember[] = "out";

// Everybody may do everything, without limits.
std::string configuration(const std::string& socket) {
  return R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path=)" +
         socket + R"(</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
    <allow own="*"/>
    <allow user="*"/>
  </policy>
  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="max_completed_connections">100000</limit>
  <limit name="max_connections_per_user">100000</limit>
</busconfig>
)";
}

class Error {
 public:
  Error() { dbus_error_init(&error_); }
  ~Error() { dbus_error_free(&error_); }
  Error(const Error&) = delete;
  Error& operator=(const Error&) = delete;

  DBusError* get() { return &error_; }
  void check() const {
    if (dbus_error_is_set(&error_)) throw std::runtime_error(error_.message);
  }

 private:
  DBusError error_;
};

void require(bool condition) {
  if (!condition) throw std::runtime_error("no memory for a message");
}

DBusConnection* connect(const std::string& address) {
  Error error;
  DBusConnection* const connection = dbus_connection_open_private(address.c_str(), error.get());
  error.check();
  dbus_connection_set_exit_on_disconnect(connection, FALSE);
  dbus_bus_register(connection, error.get());
  error.check();
  return connection;
}

DBusHandlerResult on_message(DBusConnection* /*connection*/, DBusMessage* message, void* board) {
  const Nanoseconds at = now();
  const char* const interface = dbus_message_get_interface(message);
  if (interface == nullptr || std::string(interface) != kInterface) {
    return DBUS_HANDLER_RESULT_NOT_YET_HANDLED;
  }
  const unsigned char* bytes = nullptr;
  int size = 0;
  dbus_message_get_args(message, nullptr, DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &bytes, &size,
                        DBUS_TYPE_INVALID);
  static_cast<Board*>(board)->arrived(at, static_cast<std::size_t>(size));
  return DBUS_HANDLER_RESULT_HANDLED;
}

struct Unref {
  void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};

class BusSender : public Sender {
 public:
  BusSender(DBusConnection* connection, const Work& work)
      : connection_(connection),
        broadcast_(work.kind == Kind::kBroadcast),
        payload_(work.size, 'x') {}

  void send() override {
    const std::unique_ptr<DBusMessage, Unref> message(
        broadcast_ ? dbus_message_new_signal(kPath, kInterface, kMember)
                   : dbus_message_new_method_call(kReceiver, kPath, kInterface, kMember));
    require(message != nullptr);
    dbus_message_set_no_reply(message.get(), TRUE);
    const char* const bytes = payload_.data();
    const int size = static_cast<int>(payload_.size());
    require(dbus_message_append_args(message.get(), DBUS_TYPE_ARRAY, DBUS_TYPE_BYTE, &bytes, size,
                                     DBUS_TYPE_INVALID) != FALSE);
    require(dbus_connection_send(connection_, message.get(), nullptr) != FALSE);
  }
  void flush() override { dbus_connection_flush(connection_); }

 private:
  DBusConnection* const connection_;
  const bool broadcast_;
  const std::string payload_;
};

class DBus : public Subject {
 public:
  [[nodiscard]] const char* name() const override { return "dbus"; }

  pid_t start_server(Crew& crew) override {
    const std::string socket = daemon_.directory().file("socket");
    const std::string file = daemon_.directory().write("bus.conf", configuration(socket));
    const pid_t pid = daemon_.start("dbus-daemon", {"--config-file=" + file, "--nofork"});
    crew.wait_until("dbus-daemon listens", [&] { return path_answers(socket); });
    address_ = "unix:path=" + socket;
    return pid;
  }

  void receive(const Work& work, Board& board, int index) override {
    DBusConnection* const connection = connect(address_);
    Error error;
    if (work.kind == Kind::kBroadcast) {
      const std::string rule = std::string("type='signal',interface='") + kInterface + "'";
      dbus_bus_add_match(connection, rule.c_str(), error.get());
    } else if (index == 0) {
      dbus_bus_request_name(connection, kReceiver, 0, error.get());
    }
    error.check();
    require(dbus_connection_add_filter(connection, on_message, &board, nullptr) != FALSE);
    board.ready();
    while (dbus_connection_read_write_dispatch(connection, -1) != FALSE) {
    }
    throw std::runtime_error("the connection has ended");
  }

  std::unique_ptr<Sender> make_sender(const Work& work) override {
    return std::make_unique<BusSender>(connect(address_), work);
  }

 private:
  Daemon daemon_;
  std::string address_;
};

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
  bench::DBus subject;
  return bench::run_program(subject, argc, argv);
}
