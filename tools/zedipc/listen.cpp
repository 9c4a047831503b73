// SPDX-License-Identifier: MIT
// zedipc listen: what is sent to a name, to the highest priority and to everybody.
#include <zedipc/notify.h>

#include "zedipc/client.h"
#include "zedipc/commands.h"
#include "zedipc/execute.h"
#include "zedipc/inbox.h"
#include "zedipc/output.h"
#include "zedipc/text.h"
#include "zedipc/view.h"

namespace command {

int listen(const ListenOptions& options) {
  Inbox& inbox = Inbox::instance();
  const std::string name = options.name.empty() ? private_name("listen") : options.name;
  for (const std::string& notification : options.notifications) {
    check(zedipc::ipcRegisterNotificationCB(notification, Inbox::on_notification, &inbox,
                                            options.priority, name));
  }
  wait_for_server();
  inbox.catch_signals();
  if (!options.view.quiet) say("listening as " + printable(name));
  if (!options.execute.empty()) {
    const Execution execution(options.execute, options.shell);
    return watch(inbox, options.view, [&](const Message& message) { execution.run(message); });
  }
  const Output output;
  return watch(inbox, options.view, [&](const Message& message) {
    output.line(shown(message, options.view.format, output));
  });
}

}  // namespace command
