// SPDX-License-Identifier: MIT
// Who of many receivers gets a notification: each has its own name, notification and
// session, and the last one is addressed. What is sent is thrown away. The floor searches a
// bare table.
#include <memory>
#include <vector>

#include "inside.h"
#include "ipc/ipc_private.h"
#include "notifyserver/session.h"

namespace {

using zedipc::JSObject;

// Frames are two writes.
constexpr long kWrites = 2;

class DiscardingChannel : public zedipc::IPC {
 public:
  DiscardingChannel() : IPC(new IpcPrivate) {}
  bool write(const void*, int) override {
    ++writes_;
    return true;
  }
  [[nodiscard]] long writes() const { return writes_; }

 private:
  long writes_ = 0;
};

std::string receiver(int index) { return "receiver" + std::to_string(index); }
std::string notification(int index) { return "notification" + std::to_string(index); }

// The server's table, filled for one benchmark.
class Table {
 public:
  explicit Table(int size) {
    zedipc::server.registrations = {};
    for (int i = 0; i < size; ++i) {
      channels_.push_back(std::make_unique<DiscardingChannel>());
      zedipc::server.registrations.add(
          {receiver(i), notification(i), 0, channels_.back().get(), false});
    }
  }
  ~Table() { zedipc::server.registrations = {}; }
  Table(const Table&) = delete;
  Table& operator=(const Table&) = delete;

  [[nodiscard]] const DiscardingChannel& last() const { return *channels_.back(); }

 private:
  std::vector<std::unique_ptr<DiscardingChannel>> channels_;
};

JSObject make_message(const std::string& to, const std::string& name) {
  JSObject message;
  message("flags") = 0;
  message("from") = "printer";
  message("notification") = name;
  message("parameter")("tray") = 2;
  message("to") = to;
  message("type") = "notify";
  return message;
}

void library(benchmark::State& state, int size, const std::string& to) {
  const zedipc::LogChannelScope scope(zedipc::kLogNotifyServer);
  const Table table(size);
  DiscardingChannel sender;
  const zedipc::Session session{&sender, 1, false};
  const std::string text = make_message(to, notification(size - 1)).dump();
  zedipc::Message message(text, zedipc::Message::Parameter::kLeave);
  const auto step = [&]() NO_THREAD_SAFETY_ANALYSIS {  // on one thread
    zedipc::route_notification(session, message);
  };
  step();
  require(table.last().writes() == kWrites && sender.writes() == 0, "one receiver");
  measure(state, step);
}

struct Row {
  std::string to;
  std::string notification;
  int priority;
};

// The row with the highest priority, the last of equal ones; any name will do for "*".
const Row* find(const std::vector<Row>& rows, const std::string& to, const std::string& name) {
  const bool any = to == "*";
  const Row* best = nullptr;
  for (const Row& row : rows) {
    if (row.notification != name || (!any && row.to != to)) continue;
    if (best == nullptr || row.priority >= best->priority) best = &row;
  }
  return best;
}

void floor(benchmark::State& state, int size, const std::string& to) {
  std::vector<Row> rows;
  for (int i = 0; i < size; ++i) rows.push_back({receiver(i), notification(i), 0});
  const std::string name = notification(size - 1);
  const auto step = [&] {
    const Row* found = find(rows, to, name);
    benchmark::DoNotOptimize(found);
    return found;
  };
  require(step() == &rows.back(), "one receiver");
  measure(state, step);
}

void add(const std::string& work, int size, const std::string& to) {
  const std::string name = work + "/" + std::to_string(size);
  add_benchmark(name, "zedipc", [=](benchmark::State& state) { library(state, size, to); });
  add_benchmark(name, "floor", [=](benchmark::State& state) { floor(state, size, to); });
}

}  // namespace

void register_benchmarks() {
  for (const int size : {10, 100, 1000, 10000}) {
    add("routing_unicast", size, receiver(size - 1));
    add("routing_broadcast", size, "*");
  }
}
