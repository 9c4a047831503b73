// SPDX-License-Identifier: MIT
// zedipc send: one notification, or the same one several times.
#include <zedipc/notify.h>

#include <thread>

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
  if (options.json.empty() && !options.text) return {};
  const std::string text = options.json == "-" ? read_file("-") : options.json;
  if (options.text) return text;
  return read_json(text, options.json == "-" ? "standard input" : "the parameter");
}

// As the library writes it.
std::size_t message_size(const SendOptions& options, const zedipc::JSObject& parameter) {
  zedipc::JSObject message;
  message("type") = "notify";
  message("from") = options.from;
  message("to") = options.to;
  message("notification") = options.notification;
  message("parameter") = parameter;
  message("flags") = options.flags;
  return message.dump().size();
}

// Waits for the word that nobody took one.
void wait_for_refusal(const SendOptions& options, Inbox& inbox) {
  const auto until = Clock::now() + std::chrono::milliseconds(options.wait);
  while (const auto message = inbox.wait(until)) {
    if (message->to != options.to || message->notification != options.notification) continue;
    throw Failure("nobody takes " + printable(options.notification) + " for " +
                  printable(options.to));
  }
}

}  // namespace

int send(const SendOptions& options) {
  const zedipc::JSObject parameter = parameter_of(options);
  if (message_size(options, parameter) > kLongestMessage - kServersShare) {
    throw Failure(
        "the parameter is too long: a message has 524288 bytes at the most, and the "
        "server would pass over this one without a word");
  }
  Inbox& inbox = Inbox::instance();
  if (options.wait >= 0) zedipc::ipcRegisterUnicastError(Inbox::on_refusal, &inbox);
  for (unsigned int i = 0; i < options.count; ++i) {
    if (i > 0) std::this_thread::sleep_for(std::chrono::milliseconds(options.every));
    check(zedipc::ipcNotify(options.to, options.notification, parameter, options.flags,
                            options.from));
  }
  // A process that ends at once could take back what the server has not read yet.
  wait_for_server();
  if (options.wait >= 0) wait_for_refusal(options, inbox);
  return kDone;
}

}  // namespace command
