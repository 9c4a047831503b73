// SPDX-License-Identifier: MIT
// Sending notifications.
#include <string>
#include <utility>

#include <zedipc/notify.h>

#include "notifyclient/calls.h"
#include "notifyclient/client_state.h"
#include "notifyclient/connection.h"
#include "protocol/message.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

// What could not even be sent is reported in the same place as what the server found
// nobody for. A broadcast has no such error.
void report_unicast_error(const Headline& headline, const JSObject& parameter) {
  if (headline.to == kToAll) return;
  for (auto& [hold, record] : hold_all_calls(&ClientState::unicast_error_table)) {
    ZEDIPC_CLIENT_LOG(kLogNote,
                      "ipcNotify(): invoke unicast error callback (cb=%p, data=%p) for "
                      "notification '%s' to '%s'\n",
                      printable(record->cb), record->data, headline.notification.c_str(),
                      headline.to.c_str());
    start_call(std::move(hold), record->cb, headline, parameter);
  }
}

}  // namespace

int ipcNotify(const std::string& to, const std::string& notification, const JSObject& parameter,
              unsigned int flags, const std::string& from) {
  const LogChannelScope scope(kLogNotifyClient);
  if (dbg_log_enabled(kLogInfo)) {
    const std::string text = parameter.dump();
    ZEDIPC_CLIENT_LOG(kLogInfo,
                      "ipcNotify(): called with notification='%s' (to='%s', para='%s', flags=%u, "
                      "from='%s')\n",
                      notification.c_str(), to.c_str(), text.c_str(), flags, from.c_str());
  }
  const std::string sender = from.empty() ? current_app_id() : from;
  const Headline headline{sender, to, notification, flags};
  if (sender.empty()) {
    report_unicast_error(headline, parameter);
    ZEDIPC_CLIENT_LOG(
        kLogError,
        "ipcNotify(): no parameter 'from' passed and no appID set for notification '%s'\n",
        notification.c_str());
    return kNotifyNoName;
  }
  if (!ensure_connected()) {
    report_unicast_error(headline, parameter);
    ZEDIPC_CLIENT_LOG(kLogError,
                      "ipcNotify(): notification server is not running (connect failed)\n");
    return kNotifyNotConnected;
  }
  const std::string text = notify_text(headline, parameter);
  const SendResult result = send_to_server(kCurrentConnection, text);
  if (!result.sent) {
    report_unicast_error(headline, parameter);
    ZEDIPC_CLIENT_LOG(kLogError, "ipcNotify(): write_msg() on ipc=%p failed (%s), msg=%s\n",
                      result.ipc, result.reason, text.c_str());
    return kNotifyNotConnected;
  }
  ZEDIPC_CLIENT_LOG(kLogInfo, "ipcNotify(): notification sent successfully, msg='%s'\n",
                    text.c_str());
  return kNotifyDone;
}

}  // namespace zedipc
