// SPDX-License-Identifier: MIT
// One client's connection: its messages from the first to the last, and its end.
#include "notifyserver/session.h"

#include <cstring>
#include <string>

#include "protocol/idle.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

// A peer on any other address of this machine counts as remote: the rules must not
// depend on which addresses the machine happens to have.
bool is_remote(const IPC& ipc) {
  static constexpr char kLocal[] = "127.0.0.1:";
  return std::strncmp(ipc.remote_addr(), kLocal, sizeof kLocal - 1) != 0;
}

// Unknown messages, and what remote sessions may not ask for, are ignored without a word.
void handle_text(const Session& session, const std::string& received_text) {
  Message message(received_text, Message::Parameter::kLeave);
  const MutexLock lock(server.server_lock);
  const std::string& type = message.type();
  if (type == kTypeNotify) {
    route_notification(session, message);
  } else if (type == kTypeRegister) {
    add_registration(session, message);
  } else if (type == kTypeUnregister) {
    remove_registration(session, message);
  } else if (type == kTypeRegisterObserver && !session.remote) {
    add_observer(session);
  } else if (type == kTypeUnregisterObserver && !session.remote) {
    remove_observer(session);
  }
}

// False at the end of the stream and after a read error. A frame that was refused or that
// stopped half-way does not end the session but reads as an empty text: part of what a
// stopped one leaves in `text` is the message before it.
bool read_message(IPC* ipc, std::string& text) {
  int msg_tag = 0;
  if (ipc->read_msg(NOTIFY_FRAME_ID, msg_tag, text, NOTIFY_MAX_MSG, -1)) return true;
  const bool eof = ipc->eof();
  if (!eof && !ipc->error()) {
    text.clear();
    return true;
  }
  ZEDIPC_SERVER_LOG(kLogError, "handle_client(): read_msg() %s on ipc=%p, close session\n",
                    eof ? "EOF" : "ERROR", static_cast<void*>(ipc));
  return false;
}

void end_session(const Session& session) {
  {
    const MutexLock lock(server.server_lock);
    server.registrations.remove_session(session.ipc);
    server.observers.erase(session.ipc);
    server.sessions.erase(session.identity);
  }
  // No other thread can be writing to the channel now, or find it in a table. Not under
  // the lock: deleting a channel waits for any channel callback of this process that is
  // running, and the other clients must not wait for that.
  delete session.ipc;
}

}  // namespace

void* handle_client(void* accepted) {
  const LogChannelScope scope(kLogNotifyServer);
  Session session{static_cast<IPC*>(accepted), 0, false};
  {
    const MutexLock lock(server.server_lock);
    session.identity = add_session(session.ipc);
  }
  session.remote = is_remote(*session.ipc);
  std::string received_text;
  while (read_message(session.ipc, received_text)) {
    handle_text(session, received_text);
    release_when_idle(*session.ipc, received_text);
  }
  end_session(session);
  release_large(received_text);
  return nullptr;
}

}  // namespace zedipc
