// SPDX-License-Identifier: MIT
// The queue of a connection's returned messages, and the thread that empties it.
#include "notifyclient/return_queue.h"

#include <poll.h>

#include <utility>

#include "base/thread.h"
#include "notifyclient/connection.h"
#include "notifyclient/unregistration.h"

namespace zedipc {

namespace {

// A socket that can be written to takes so much without a wait.
constexpr std::size_t kAtOnce = 8192;

// Bytes that may wait. Only a server that floods a client with what it has no callback for,
// and reads nothing, gets that far; the rest is dropped, as if the write had failed.
constexpr std::size_t kMostMemory = 16U << 20;

std::size_t memory_of(const Returned& message) {
  return sizeof message + message.text.size() + message.notification.size();
}

void log_returned(const Returned& message, const SendResult& result) {
  log_failure("reader_thread", result, message.text);
  ZEDIPC_CLIENT_LOG(message.level,
                    "reader_thread(): returned notification '%s' back to server, since no %s\n",
                    message.notification.c_str(), message.why);
}

}  // namespace

void ReturnQueue::give_back(const std::string& to, Returned message) {
  bool at_once = false;
  bool kept = true;
  bool my_turn = false;
  {
    const MutexLock lock(table_lock);
    const bool held = connection_.stage == Connection::Stage::kBeingMade ||
                      Unregistration::hurry(to, message.notification);
    at_once = !held && !sending_ && queue_.empty();
    if (!at_once) kept = push(message);
    my_turn = !held && take_turn();
  }
  if (at_once) {
    if (send_at_once(message)) return;
    const MutexLock lock(table_lock);
    kept = push(message);
    my_turn = take_turn();
  }
  if (!kept) log_returned(message, {false, "ERROR", &connection_.channel});
  if (my_turn) start_sending();
}

// False if there is no room for it.
bool ReturnQueue::push(Returned& message) {
  if (size_ + memory_of(message) > kMostMemory) return false;
  size_ += memory_of(message);
  queue_.push_back(std::move(message));
  return true;
}

// Whether there is work for a thread, which the caller then has to start.
bool ReturnQueue::take_turn() {
  if (sending_ || queue_.empty()) return false;
  sending_ = true;
  return true;
}

// Without a thread the messages are lost, as if the write had failed.
void ReturnQueue::start_sending() {
  const void* const ipc = &connection_.channel;
  const ThreadStart start = start_thread(send_all, this);
  if (start.error == 0) return;
  ZEDIPC_CLIENT_LOG(kLogError, "reader_thread(): %s() failed with error=%d\n", start.call,
                    start.error);
  std::deque<Returned> lost;
  {
    const MutexLock lock(table_lock);
    lost.swap(queue_);
    size_ = 0;
    sending_ = false;
    client.changed.notify_all();
  }
  for (const Returned& message : lost) {
    log_returned(message, {false, "ERROR", ipc});
  }
}

void* ReturnQueue::send_all(void* queue) {
  const LogChannelScope scope(kLogNotifyClient);
  auto& self = *static_cast<ReturnQueue*>(queue);
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
      self.size_ -= memory_of(next);
    }
    log_returned(next, send_to_server(&self.connection_, next.text));
  }
}

bool ReturnQueue::send_at_once(const Returned& message) {
  if (message.text.size() > kAtOnce || !client.send_lock.try_lock()) return false;
  pollfd pf{connection_.channel.getFD(), POLLOUT, 0};
  const bool ready = ::poll(&pf, 1, 0) == 1;
  SendResult result{};
  if (ready) result = write_message(connection_.channel, message.text);
  client.send_lock.unlock();
  if (ready) log_returned(message, result);
  return ready;
}

void ReturnQueue::end() {
  queue_.clear();
  size_ = 0;
  while (sending_) client.changed.wait(table_lock);
}

void ReturnQueue::resume() {
  ReturnQueue* queue = nullptr;
  {
    const MutexLock lock(table_lock);
    Connection* const connection = client.server_ipc.load(std::memory_order_relaxed);
    if (connection != nullptr && connection->returns.take_turn()) queue = &connection->returns;
  }
  if (queue != nullptr) queue->start_sending();
}

}  // namespace zedipc
