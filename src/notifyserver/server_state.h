// SPDX-License-Identifier: MIT
// The notification server's tables. One server per process, one lock for all.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <set>

#include <zedipc/ipc.h>

#include "log/log.h"
#include "notifyserver/registration_table.h"
#include "notifyserver/rules.h"

namespace zedipc {

// Readers of the log know the whole subsystem by this module.
inline constexpr char kServerModule[] = "src/notifyserver.cpp";

#define ZEDIPC_SERVER_LOG(level, ...) dbg_log(kServerModule, __LINE__, level, __VA_ARGS__)

struct ServerState {
  // Held while a message is handled, all writes to other sessions included, so that
  // no session can go away under a writer. Guards everything here.
  std::mutex server_lock;

  // Every live session by its identity, by which messages refer to it.
  std::map<std::int32_t, IPC*> sessions;
  std::int32_t next_identity;

  // Their order decides between equal priorities.
  RegistrationTable registrations;

  std::set<IPC*> observers;

  // Written before the first session starts, and only read afterwards.
  RuleSet inbound_rules;
  RuleSet outbound_rules;
  bool server_running = false;  // never cleared

  ServerState();
};

// Made when the library is loaded and never destroyed, since session threads run
// until the process has gone.
extern ServerState& server;

// A live session, as the thread that serves it sees it.
struct Session {
  IPC* ipc;
  std::int32_t identity;
  bool remote;
};

// Gives the session an identity that no live session has. The lock is held.
std::int32_t add_session(IPC* ipc);

inline const char* place_name(bool remote) { return remote ? "remote" : "local"; }
inline const char* failure_name(IPC* ipc) { return ipc->eof() ? "EOF" : "ERROR"; }

}  // namespace zedipc
