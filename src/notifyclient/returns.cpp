// SPDX-License-Identifier: MIT
// The queue of a connection's returned messages, and the thread that empties it.
#include "notifyclient/returns.h"

#include <poll.h>

#include <utility>

#include "base/thread.h"
#include "notifyclient/connection.h"
#include "notifyclient/departure.h"

namespace zedipc {

namespace {

// A socket that can be written to takes so much without a wait.
constexpr std::size_t kAtOnce = 4096;

// Bytes of text that may wait. Only a server that floods a client with what it has no
// callback for, and reads nothing, comes so far: what is more is lost, as in a failed write.
constexpr std::size_t kMostText = 16U << 20;

void log_returned(const Returned& message, const SendResult& result) {
  log_failure("reader_thread", result, message.text);
  ZEDIPC_CLIENT_LOG(message.level,
                    "reader_thread(): returned notification '%s' back to server, since no %s\n",
                    message.notification.c_str(), message.why);
}

}  // namespace

void Returns::give_back(const std::string& to, Returned message) {
  bool at_once = false;
  bool kept = true;
  bool claimed = false;
  {
    const MutexLock lock(table_lock);
    const bool departing = Departure::call(to, message.notification);
    at_once = !departing && !sending_ && queue_.empty();
    if (!at_once) kept = push(message);
    claimed = !departing && claim();
  }
  if (at_once) {
    if (send_at_once(message)) return;
    const MutexLock lock(table_lock);
    kept = push(message);
    claimed = claim();
  }
  if (!kept) log_returned(message, {false, "ERROR", &channel_});
  if (claimed) start();
}

// False if there is no room for it.
bool Returns::push(Returned& message) {
  if (size_ + message.text.size() > kMostText) return false;
  size_ += message.text.size();
  queue_.push_back(std::move(message));
  return true;
}

// Whether there is work for a thread that the caller has to start.
bool Returns::claim() {
  if (sending_ || queue_.empty()) return false;
  sending_ = true;
  return true;
}

// Without a thread the messages wait for the next call.
void Returns::start() {
  const ThreadStart start = start_thread(send_all, this);
  if (start.error == 0) return;
  ZEDIPC_CLIENT_LOG(kLogError, "reader_thread(): %s() failed with error=%d\n", start.call,
                    start.error);
  const MutexLock lock(table_lock);
  sending_ = false;
  client.changed.notify_all();
}

void* Returns::send_all(void* returns) {
  const LogChannelScope scope(kLogNotifyClient);
  auto& self = *static_cast<Returns*>(returns);
  for (;;) {
    Returned next;
    {
      const MutexLock lock(table_lock);
      if (self.queue_.empty()) {
        self.sending_ = false;
        client.changed.notify_all();
        return nullptr;
      }
      next = std::move(self.queue_.front());
      self.queue_.pop_front();
      self.size_ -= next.text.size();
    }
    self.send(next);
  }
}

void Returns::send(const Returned& message) {
  SendResult result;
  {
    const MutexLock lock(client.send_lock);
    result = write_message(channel_, message.text);
  }
  log_returned(message, result);
}

bool Returns::send_at_once(const Returned& message) {
  if (message.text.size() > kAtOnce || !client.send_lock.try_lock()) return false;
  pollfd pf{channel_.getFD(), POLLOUT, 0};
  const bool ready = ::poll(&pf, 1, 0) == 1;
  SendResult result{};
  if (ready) result = write_message(channel_, message.text);
  client.send_lock.unlock();
  if (ready) log_returned(message, result);
  return ready;
}

void Returns::await_end() {
  while (sending_) client.changed.wait(table_lock);
}

void Returns::resume() {
  Returns* claimed = nullptr;
  {
    const MutexLock lock(table_lock);
    Connection* const connection = client.server_ipc.load(std::memory_order_relaxed);
    if (connection != nullptr && connection->returns.claim()) claimed = &connection->returns;
  }
  if (claimed != nullptr) claimed->start();
}

}  // namespace zedipc
