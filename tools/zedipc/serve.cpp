// SPDX-License-Identifier: MIT
// zedipc serve: the notification server in the foreground.
#include <unistd.h>
#include <zedipc/notify.h>

#include <atomic>
#include <optional>
#include <thread>

#include "common/tcp_table.h"
#include "zedipc/commands.h"
#include "zedipc/inbox.h"
#include "zedipc/log_relay.h"
#include "zedipc/output.h"
#include "zedipc/rule_check.h"
#include "zedipc/service_manager.h"
#include "zedipc/text.h"

namespace command {

namespace {

// The library does not tell when the server listens, so this process looks for a listening
// socket of its own: a start that fails never has one.
constexpr std::chrono::milliseconds kBetweenLooks{5};
// Without /proc no socket can be seen; but a start that takes this long has not failed.
constexpr std::chrono::seconds kLongestStart{10};

RuleFile open_rules(const std::string& path) {
  try {
    return RuleFile(path);
  } catch (const Failure& failure) {
    throw Failure(std::string("cannot start: ") + failure.what() +
                  ". Name another file, or leave out --rules to serve this machine alone.");
  }
}

std::optional<RuleFile> read_rules(const std::string& path) {
  if (path.empty()) return std::nullopt;
  RuleFile file = open_rules(path);
  if (!file.error().empty()) throw Failure("cannot start: " + file.error());
  for (const std::string& warning : file.warnings()) say(warning);
  return file;
}

std::string taken_port(bool external) {
  const std::string owner = common::describe_port_owner(external);
  if (owner.empty()) {
    return "cannot start: port 5899 cannot be opened, and nobody is to be seen who has it. Is the "
           "loopback interface up?";
  }
  return "cannot start: port 5899 is taken by " + printable(owner) +
         ". If that is a notification server, clients find it already; if not, end it.";
}

// What the server's result means. The file was readable and right a moment ago.
std::string reason(int result, bool external) {
  switch (result) {
    case zedipc::kServerNotStarted:
      return taken_port(external);
    case zedipc::kServerNoRuleFile:
      return "cannot start: the rule file cannot be opened any more";
    case zedipc::kServerBadRuleFile:
      return "cannot start: the rule file has just become wrong; check it with 'zedipc rules'";
    default:
      return "cannot start: the library gave the unknown result " + std::to_string(result);
  }
}

std::string announcement(const std::optional<RuleFile>& file) {
  const std::string counts = file ? file->counts() : "no rules";
  if (file && file->external()) {
    return "serving other machines too, on port 5899 of all addresses (external): " + counts;
  }
  return "serving this machine, on 127.0.0.1 port 5899 (local): " + counts;
}

void announce(const std::optional<RuleFile>& file) {
  tell_ready();
  try {
    Output().line(announcement(file));
  } catch (const OutputClosed&) {
    // It serves all the same.
  }
}

}  // namespace

int serve(const ServeOptions& options) {
  const LogRelay relay;
  const std::optional<RuleFile> file = read_rules(options.rules);
  const bool external = file && file->external();
  Inbox& inbox = Inbox::instance();
  inbox.catch_signals();
  inbox.ignore_output();
  static std::atomic<int> result{
      zedipc::kNotifyDone};  // a failed start; the thread may outlive this call
  std::thread([&inbox, path = options.rules] {
    result = zedipc::ipcNotificationServer(path.empty() ? nullptr : path.c_str());
    inbox.wake();
  }).detach();

  bool announced = false;
  const Clock::time_point started = Clock::now() + kLongestStart;
  while (!Inbox::asked_to_end()) {
    if (result != zedipc::kNotifyDone) throw Failure(reason(result, external));
    if (!announced && (common::listens(getpid()) || Clock::now() >= started)) {
      announce(file);
      announced = true;
    }
    inbox.wait(announced ? Clock::time_point::max() : Clock::now() + kBetweenLooks);
  }
  return kDone;
}

}  // namespace command
