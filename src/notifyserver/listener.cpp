// SPDX-License-Identifier: MIT
// The start of the notification server, and its accept loop.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <thread>

#include <zedipc/notify.h>
#include <zedipc/tcp.h>

#include "base/thread.h"
#include "notifyserver/rules.h"
#include "notifyserver/server_state.h"
#include "notifyserver/session.h"
#include "protocol/protocol.h"

namespace zedipc {

namespace {

using namespace std::chrono_literals;

constexpr std::size_t kReadChunk = 4096;
constexpr std::chrono::milliseconds kLongestPause = 100ms;

bool read_file(const char* path, std::string& text) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "rbe"), std::fclose);
  if (file == nullptr) return false;
  char chunk[kReadChunk];
  std::size_t count;
  do {
    count = std::fread(chunk, 1, sizeof chunk, file.get());
    text.append(chunk, count);
  } while (count == sizeof chunk);
  return true;
}

// 0, or the result of a start that fails.
int load_rules(const char* config_file) REQUIRES(server.server_lock) {
  std::string text;
  if (!read_file(config_file, text)) {
    ZEDIPC_SERVER_LOG(kLogError, "ipcNotificationServer(): couldn't open config file '%s'\n",
                      config_file);
    return kServerNoRuleFile;
  }
  if (!parse_config(text, server.inbound_rules, server.outbound_rules)) {
    ZEDIPC_SERVER_LOG(kLogError, "ipcNotificationServer(): syntax error in config file '%s'\n",
                      config_file);
    return kServerBadRuleFile;
  }
  return 0;
}

// Without rules nothing may cross the machine's border, so other machines cannot even
// connect.
bool open_port(TCP& listener) REQUIRES(server.server_lock) {
  const bool external = !server.inbound_rules.empty() || !server.outbound_rules.empty();
  const char* const name = external ? "external" : "local";
  if (!listener.listen(NOTIFY_PORT, external ? nullptr : "127.0.0.1")) {
    ZEDIPC_SERVER_LOG(kLogError, "ipcNotificationServer(): couldn't open %s listen port %hu\n",
                      name, NOTIFY_PORT);
    return false;
  }
  ZEDIPC_SERVER_LOG(kLogInfo,
                    "ipcNotificationServer(): notification service started on %s listen port %hu\n",
                    name, NOTIFY_PORT);
  return true;
}

// Makes the listener only once the rules are read: a channel logs even its own end, and a
// start that fails earlier has nothing to say about channels.
int start(std::optional<TCP>& listener, const char* config_file) {
  const MutexLock lock(server.server_lock);
  if (server.server_running) return kServerNotStarted;
  if (config_file != nullptr) {
    if (const int problem = load_rules(config_file)) return problem;
  }
  if (!open_port(listener.emplace())) return kServerNotStarted;
  server.server_running = true;
  return 0;
}

// The next peer. A single failure may be that peer's own, so the next attempt follows at
// once. Failures in a row mean that something is lacking: pause longer and longer until it
// is there. An exception would end this server and leave the process unable to start another.
IPC* accept_next(TCP& listener) {
  for (std::chrono::milliseconds pause(0);; pause = std::min(2 * pause + 1ms, kLongestPause)) {
    try {
      if (IPC* const session = listener.accept(-1)) return session;
    } catch (const std::bad_alloc&) {
      // Too little memory is a failure as too few descriptors are.
    }
    std::this_thread::sleep_for(pause);
  }
}

[[noreturn]] void serve(TCP& listener) {
  for (;;) {
    IPC* const session = accept_next(listener);
    ZEDIPC_SERVER_LOG(kLogInfo, "ipcNotificationServer(): accepted new session (ipc=%p)\n",
                      static_cast<void*>(session));
    const ThreadStart started = start_thread(handle_client, session);
    if (started.error == 0) continue;
    ZEDIPC_SERVER_LOG(kLogError,
                      "ipcNotificationServer(): %s() failed with error=%d, close "
                      "session (ipc=%p)\n",
                      started.call, started.error, static_cast<void*>(session));
    delete session;
  }
}

}  // namespace

int ipcNotificationServer() { return ipcNotificationServer(nullptr); }

int ipcNotificationServer(const char* config_file) {
  const LogChannelScope scope(kLogNotifyServer);
  std::optional<TCP> listener;
  if (const int problem = start(listener, config_file)) return problem;
  serve(*listener);
}

}  // namespace zedipc
