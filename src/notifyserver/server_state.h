// SPDX-License-Identifier: MIT
// The notification server's tables. One server per process, one lock for all.
#pragma once

#include <cstdint>
#include <map>
#include <set>

#include <zedipc/ipc.h>

#include "base/mutex.h"
#include "log/log.h"
#include "notifyserver/registration_table.h"
#include "notifyserver/rules.h"

namespace zedipc {

// Readers of the log know the whole subsystem by this module.
inline constexpr char kServerModule[] = "src/notifyserver.cpp";

#define ZEDIPC_SERVER_LOG(level, ...) dbg_log(kServerModule, __LINE__, level, __VA_ARGS__)

struct ServerState {
  // Held while a message is handled, all writes to other sessions included, so that
  // no session can go away under a writer.
  Mutex server_lock;

  // Every live session by the identity that stands for it in messages. Identities start
  // far from the small numbers that a careless sender may put there.
  static constexpr std::int32_t kFirstIdentity = 0x10000000;
  std::map<std::int32_t, IPC*> sessions GUARDED_BY(server_lock);
  std::int32_t next_identity GUARDED_BY(server_lock) = kFirstIdentity;

  // Their order decides between equal priorities.
  RegistrationTable registrations GUARDED_BY(server_lock);

  std::set<IPC*> observers GUARDED_BY(server_lock);

  // Written before the first session starts, and only read afterwards.
  RuleSet inbound_rules GUARDED_BY(server_lock);
  RuleSet outbound_rules GUARDED_BY(server_lock);
  bool server_running GUARDED_BY(server_lock) = false;  // never cleared
};

// Never destroyed, since session threads run until the process has gone.
extern ServerState& server;

// Gives the session an identity that no live session has.
std::int32_t add_session(IPC* ipc) REQUIRES(server.server_lock);

}  // namespace zedipc
