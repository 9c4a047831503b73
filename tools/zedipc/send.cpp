// SPDX-License-Identifier: MIT
// zedipc send: one notification, or the same one several times.
#include <zedipc/notify.h>

#include "zedipc/client.h"
#include "zedipc/commands.h"
#include "zedipc/inbox.h"
#include "zedipc/json_text.h"
#include "zedipc/output.h"
#include "zedipc/text.h"

namespace command {

namespace {

// The server's own limit for a whole message; a longer one is lost without a word.
constexpr std::size_t kLongestMessage = 524288;
constexpr std::size_t kServersShare = 25;

zedipc::JSObject parameter_of(const SendOptions& options) {
  if (!options.parameter && !options.text) return {};
  const std::string text = options.json == "-" ? read_file("-") : options.json;
  if (options.text) return text;
  return read_json(text, options.json == "-" ? "standard input" : "the parameter");
}

// As the library writes it.
std::string written(const SendOptions& options, const zedipc::JSObject& parameter) {
  zedipc::JSObject message;
  message("type") = "notify";
  message("from") = options.from;
  message("to") = options.to;
  message("notification") = options.notification;
  message("parameter") = parameter;
  message("flags") = options.flags;
  return message.dump();
}

// The server passes over what it cannot take without a word.
void check_message(const std::string& text) {
  if (text.size() > kLongestMessage - kServersShare) {
    throw Failure(
        "the parameter is too long: a message has 524288 bytes at the most, and the "
        "server would pass over this one without a word");
  }
  if (zedipc::JSObject().parse(text.c_str()) < 0) {
    throw Failure(
        "the parameter has a number that is too large: it would be sent as 'inf', which is no "
        "JSON, and the server would pass over the message without a word");
  }
}

// Waits until then for the word that nobody took one.
bool is_refused(const SendOptions& options, Inbox& inbox, Clock::time_point until) {
  while (const auto message = inbox.wait(until)) {
    if (message->to == options.to && message->notification == options.notification) return true;
  }
  return false;
}

// Sends it as often as it is wanted, unless the command is asked to end; says whether it is
// known already that nobody took one.
bool send_all(const SendOptions& options, const zedipc::JSObject& parameter, Inbox& inbox) {
  bool refused = false;
  for (unsigned int sent = 0; !Inbox::asked_to_end();) {
    check(zedipc::ipcNotify(options.to, options.notification, parameter, options.flags,
                            options.from));
    if (++sent == options.count) break;
    if (sent == 1) inbox.catch_signals();
    if (options.every == 0) continue;
    const auto next = Clock::now() + std::chrono::milliseconds(options.every);
    while (is_refused(options, inbox, next)) refused = true;
  }
  return refused;
}

}  // namespace

int send(const SendOptions& options) {
  const zedipc::JSObject parameter = parameter_of(options);
  check_message(written(options, parameter));
  Inbox& inbox = Inbox::instance();
  inbox.ignore_output();  // there is none
  if (options.wait >= 0) zedipc::ipcRegisterUnicastError(Inbox::on_refusal, &inbox);
  const bool refused = send_all(options, parameter, inbox);
  // A process that ends at once could take back what the server has not read yet.
  wait_for_server();
  if (options.wait < 0) return kDone;
  inbox.catch_signals();
  const std::string who =
      " takes " + printable(options.notification) + " for " + printable(options.to);
  const auto until = Clock::now() + std::chrono::milliseconds(options.wait);
  if (refused || is_refused(options, inbox, until)) throw Failure("nobody" + who);
  if (Inbox::asked_to_end()) {
    throw Failure("interrupted before it was known whether anybody" + who);
  }
  return kDone;
}

}  // namespace command
