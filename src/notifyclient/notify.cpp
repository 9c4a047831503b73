// SPDX-License-Identifier: MIT
// Sending notifications.
#include <mutex>
#include <string>

#include <zedipc/notify.h>

#include "notifyclient/client_state.h"
#include "notifyclient/connection.h"
#include "notifyclient/invocation.h"
#include "protocol/message.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

// The sender's name: an empty one stands for the application id. Whoever names a
// sender needs no lock that a callback could be waiting for.
bool resolve_sender(std::string& from) {
  if (!from.empty()) return true;
  std::string id;
  if (!current_app_id(id)) return false;
  const std::lock_guard<std::mutex> lock(client.table_lock);
  current_app_id(from);
  return true;
}

// What could not even be sent is reported in the same place as what the server found
// nobody for. A broadcast has no such error.
void report_unicast_error(const Call& call, const JSObject& parameter) {
  if (call.to == kToAll) return;
  const std::lock_guard<std::mutex> lock(client.table_lock);
  for (UnicastErrorRecord* const record : lazy_table(client.unicast_error_table)) {
    ZEDIPC_CLIENT_LOG(kLogNote,
                      "ipcNotify(): invoke unicast error callback (cb=%p, data=%p) for "
                      "notification '%s' to '%s'\n",
                      printable(record->cb), record->data, call.notification.c_str(),
                      call.to.c_str());
    start_invocation(*record, call, parameter);
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
  std::string sender = from;
  const bool has_name = resolve_sender(sender);
  const Call call{sender, to, notification, flags};
  if (!has_name) {
    report_unicast_error(call, parameter);
    ZEDIPC_CLIENT_LOG(
        kLogError,
        "ipcNotify(): no parameter 'from' passed and no appID set for notification '%s'\n",
        notification.c_str());
    return kNoName;
  }
  if (!ensure_connected()) {
    report_unicast_error(call, parameter);
    ZEDIPC_CLIENT_LOG(kLogError,
                      "ipcNotify(): notification server is not running (connect failed)\n");
    return kNotTold;
  }
  const std::string text = notify_text(call, parameter);
  const SendResult result = send_to_server(kCurrentConnection, text);
  if (!result.sent) {
    report_unicast_error(call, parameter);
    ZEDIPC_CLIENT_LOG(kLogError, "ipcNotify(): write_msg() on ipc=%p failed (%s), msg=%s\n",
                      result.ipc, result.reason, text.c_str());
    return kNotTold;
  }
  ZEDIPC_CLIENT_LOG(kLogInfo, "ipcNotify(): notification sent successfully, msg='%s'\n",
                    text.c_str());
  return kDone;
}

}  // namespace zedipc
