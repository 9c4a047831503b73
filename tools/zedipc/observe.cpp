// SPDX-License-Identifier: MIT
// zedipc observe: all deliveries of the server.
#include <zedipc/notify.h>

#include "zedipc/client.h"
#include "zedipc/commands.h"
#include "zedipc/inbox.h"
#include "zedipc/output.h"
#include "zedipc/view.h"

namespace command {

int observe(const ViewOptions& options) {
  Inbox& inbox = Inbox::instance();
  check(zedipc::ipcRegisterObserver(Inbox::on_delivery, &inbox));
  wait_for_server();
  inbox.catch_signals();
  if (!options.quiet) say("observing");
  const Output output;
  return watch(inbox, options, [&](const Message& message) {
    output.line(shown(message, options.format, output));
  });
}

}  // namespace command
