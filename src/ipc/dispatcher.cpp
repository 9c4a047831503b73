// SPDX-License-Identifier: MIT
// The dispatcher's thread and its passes; how channels come to it and leave it.
#include "ipc/dispatcher.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "ipc/socket.h"
#include "ipc/watch_set.h"

namespace zedipc {

NeverDestroyed<Dispatcher> dispatcher;

namespace {

using Private = IPC::IpcPrivate;

constexpr unsigned kSmallestStack = 16384;
constexpr std::size_t kAmpleStack = 1 << 20;

thread_local bool on_dispatcher = false;

void lock_in_turn() ACQUIRE(dispatcher->mutex) {
  const MutexLock turn(dispatcher->turn);
  dispatcher->mutex.lock();
}

class SCOPED_CAPABILITY DispatcherLock {
 public:
  DispatcherLock() ACQUIRE(dispatcher->mutex) {
    // A callback has the lock already, and whoever has the turn waits for that callback.
    if (on_dispatcher) {
      dispatcher->mutex.lock();
    } else {
      lock_in_turn();
    }
  }
  ~DispatcherLock() RELEASE() { dispatcher->mutex.unlock(); }
  DispatcherLock(const DispatcherLock&) = delete;
  DispatcherLock& operator=(const DispatcherLock&) = delete;
};

void* address(ChannelCallback callback) { return reinterpret_cast<void*>(callback); }

bool open_wake_pipe() REQUIRES(dispatcher->mutex) {
  int ends[2];
  // A byte that finds the pipe full is not needed: there are others in it.
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) == -1) return false;
  const MutexLock lock(dispatcher->wake_mutex);
  dispatcher->wake_end = ends[0];
  dispatcher->wake_fd.store(ends[1], std::memory_order_relaxed);
  return true;
}

void close_wake_pipe() REQUIRES(dispatcher->mutex) {
  const MutexLock lock(dispatcher->wake_mutex);
  close_fd(dispatcher->wake_fd.exchange(-1, std::memory_order_relaxed));
  close_fd(std::exchange(dispatcher->wake_end, -1));
}

// Also called without the lock, and with a channel's read_mutex held. Gives the number of the
// next pass to end, which is a whole one for those who hold the lock.
std::uint64_t wake_dispatcher() {
  std::uint64_t next;
  {
    const MutexLock lock(dispatcher->wake_mutex);
    next = dispatcher->passes + 1;
    const int fd = dispatcher->wake_fd.load(std::memory_order_relaxed);
    const char byte = 0;
    while (fd != -1 && ::write(fd, &byte, 1) == -1 && errno == EINTR) {
    }
  }
  ZEDIPC_IPC_LOG(kLogDebug, "notify_cb_thread(): notified callback thread!\n");
  return next;
}

// One byte a pass: more of them cause a few passes more and do no harm.
void take_wake_up() REQUIRES(dispatcher->mutex) {
  char byte;
  while (::read(dispatcher->wake_end, &byte, 1) == -1 && errno == EINTR) {
  }
  ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): got notification on fd=%d\n", dispatcher->wake_end);
}

void end_pass() {
  const MutexLock lock(dispatcher->wake_mutex);
  ++dispatcher->passes;
  dispatcher->passed.notify_all();
}

// Not with the dispatcher's lock held, which its next pass may want again at once.
void await_pass(std::uint64_t number) {
  if (on_dispatcher) return;
  const MutexLock lock(dispatcher->wake_mutex);
  while (dispatcher->passes < number) dispatcher->passed.wait(dispatcher->wake_mutex);
}

// Calls the channel's callback if there is something to tell. The callback may remove
// or delete any channel, so nothing of the entry may be used after the call.
void serve(Private& channel, const Dispatcher::Registration& entry, const WatchSet& ready) {
  const auto [callback, data, ipc] = entry;
  void* const function = address(callback);
  void* const i = ipc;
  void* const d = &channel;
  const int fd = channel.fd.load(std::memory_order_acquire);
  if (fd < 0) return;
  const int state = channel.cb_state.load(std::memory_order_acquire);
  if ((state & CB_LOCKED) != 0) {
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): callback %p is locked (ipc=%p, d=%p, cb_state=%d)!\n",
                   function, i, d, state);
    return;
  }
  if (!ready.has(fd)) {
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): !FD_ISSET() on fd=%d (ipc=%p, d=%p)!\n", fd, i, d);
    return;
  }
  if (!channel.take_input(fd, function, i)) return;
  ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): call callback %p with data %p (ipc=%p, d=%p)!\n",
                 function, data, i, d);
  callback(data, ipc);
}

void serve_all(const WatchSet& ready) REQUIRES(dispatcher->mutex) {
  for (auto at = dispatcher->channels.begin(); at != dispatcher->channels.end();) {
    Private* const served = at->first;
    serve(*served, at->second, ready);
    // Looked up afresh, since the callback may have removed this entry and others.
    at = dispatcher->channels.upper_bound(served);
  }
}

void watch_all(WatchSet& watched) REQUIRES(dispatcher->mutex) {
  constexpr int kWanted = CB_LOCKED | CB_ARMED;
  watched.clear();
  for (const auto& [d, entry] : dispatcher->channels) {
    const int fd = d->fd.load(std::memory_order_acquire);
    const int state = d->cb_state.load(std::memory_order_acquire);
    ZEDIPC_IPC_LOG(
        kLogDebug, "cb_thread(): try to added fd=%d for callback %p (ipc=%p, d=%p, cb_state=%d)!\n",
        fd, address(entry.callback), static_cast<void*>(entry.ipc), static_cast<void*>(d), state);
    if (fd < 0 || (state & kWanted) != CB_ARMED) continue;
    watched.add(fd);
    // Readers of the log know this line to show the data and the channel here.
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): added fd=%d for callback %p (ipc=%p, d=%p)!\n", fd,
                   address(entry.callback), entry.data, static_cast<void*>(entry.ipc));
  }
}

// Passes, until no channel is registered. After a select that failed nobody is served and the
// descriptors are put together anew; it goes on failing while there is one among them that was
// not closed by its channel.
void* cb_thread(void* /*unused*/) {
  const LogChannelScope scope(kLogIpc);
  on_dispatcher = true;
  WatchSet watched;
  for (lock_in_turn();;) {
    watched.add(dispatcher->wake_end);
    dispatcher->mutex.unlock();
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): select() called (maxfd=%d)!\n", watched.highest());
    const int result = watched.select();
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): select() returned (ret=%d)!\n", result);
    lock_in_turn();
    if (dispatcher->channels.empty()) break;
    if (result != -1) {
      if (watched.has(dispatcher->wake_end)) take_wake_up();
      serve_all(watched);
    }
    watch_all(watched);
    end_pass();
  }
  close_wake_pipe();
  dispatcher->running = false;
  end_pass();
  dispatcher->mutex.unlock();
  ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): terminate!\n");
  return nullptr;
}

// A detached thread; a size of 0 means the system's default. 0, or the error's number.
int create_thread(std::size_t stack_size) {
  pthread_attr_t attributes;
  pthread_t thread;
  int problem = pthread_attr_init(&attributes);
  if (problem != 0) return problem;
  problem = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  if (problem == 0 && stack_size != 0) problem = pthread_attr_setstacksize(&attributes, stack_size);
  if (problem == 0) problem = pthread_create(&thread, &attributes, cb_thread, nullptr);
  pthread_attr_destroy(&attributes);
  return problem;
}

bool start_dispatcher() REQUIRES(dispatcher->mutex) {
  if (!open_wake_pipe()) return false;
  const long wanted = dispatcher->stack_size;
  auto size =
      static_cast<std::size_t>(wanted <= 0 ? 0 : std::max(wanted, ::sysconf(_SC_THREAD_STACK_MIN)));
  int problem = create_thread(size);
  // The stack is still too small where thread-local variables take their place from it.
  while (problem == EINVAL && size != 0 && size < kAmpleStack) problem = create_thread(size *= 2);
  if (problem != 0) close_wake_pipe();
  dispatcher->running = problem == 0;
  return dispatcher->running;
}

bool add_callback(Private& channel, const Dispatcher::Registration& entry)
    REQUIRES(dispatcher->mutex) {
  void* const d = &channel;
  void* const ipc = entry.ipc;
  dispatcher->channels[&channel] = entry;
  if (!dispatcher->running && !start_dispatcher()) {
    dispatcher->channels.clear();
    return false;
  }
  channel.cb_state.fetch_or(CB_REGISTERED | CB_ARMED, std::memory_order_relaxed);
  ZEDIPC_IPC_LOG(kLogDebug, "%p->set_callback(): registered callback %p (d=%p))\n", ipc,
                 address(entry.callback), d);
  return true;
}

void log_nothing_to_remove(bool running, void* ipc, void* d) {
  ZEDIPC_IPC_LOG(kLogDebug, "%p->set_callback(): %s for this object (d=%p), done.\n", ipc,
                 running ? "no callback registered" : "empty callback map", d);
}

bool remove_callback(Private& channel, void* ipc) REQUIRES(dispatcher->mutex) {
  void* const d = &channel;
  const auto entry = dispatcher->channels.find(&channel);
  if (entry == dispatcher->channels.end()) {
    log_nothing_to_remove(dispatcher->running, ipc, d);
    return false;
  }
  ZEDIPC_IPC_LOG(kLogDebug, "%p->set_callback(): unregister callback %p for this object (d=%p)\n",
                 ipc, address(entry->second.callback), d);
  dispatcher->channels.erase(entry);
  channel.cb_state.fetch_and(~CB_REGISTERED, std::memory_order_relaxed);
  return true;
}

}  // namespace

// All under read_mutex, so that a channel which is closed and perhaps connected again
// meanwhile has either been through this before or not at all. It is locked until the new
// socket, which can have the number of the old one, is ready.
bool IPC::IpcPrivate::take_input(int watched_fd, void* function, void* ipc) {
  void* const self = this;
  const MutexLock lock(read_mutex);
  if (fd.load(std::memory_order_acquire) != watched_fd) return false;
  if ((cb_state.load(std::memory_order_acquire) & CB_LOCKED) != 0) return false;
  if (!poll_in_locked(0)) {
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): !poll_in()->no data (ipc=%p, d=%p)!\n", ipc, self);
    return false;
  }
  const int state = cb_state.load(std::memory_order_acquire);
  if ((state & CB_ARMED) == 0) {
    ZEDIPC_IPC_LOG(kLogDebug,
                   "cb_thread(): callback %p temporary disabled (ipc=%p, d=%p, cb_state=%d)!\n",
                   function, ipc, self, state);
    return false;
  }
  const bool failed = error_flag.load(std::memory_order_relaxed);
  if (failed || eof_flag.load(std::memory_order_relaxed)) {
    cb_state.fetch_or(CB_LOCKED, std::memory_order_relaxed);
    ZEDIPC_IPC_LOG(kLogDebug,
                   "cb_thread(): set lock flag for callback %p (ipc=%p, d=%p), reason: %s!\n",
                   function, ipc, self, failed ? "error" : "eof");
  }
  cb_state.fetch_and(~CB_ARMED, std::memory_order_relaxed);
  return true;
}

void notify_cb_thread(bool wait) {
  if (dispatcher->wake_fd.load(std::memory_order_relaxed) == -1) return;
  if (!wait) {
    wake_dispatcher();
    return;
  }
  std::uint64_t pass;
  {
    const DispatcherLock lock;
    if (!dispatcher->running) return;
    pass = wake_dispatcher();
  }
  await_pass(pass);
}

void IPC::set_callback_stacksize(int size) {
  const DispatcherLock lock;
  if (dispatcher->running) return;
  // A negative size is a large one here: it stays, and means the system's default.
  const bool small = static_cast<unsigned>(size) < kSmallestStack;
  dispatcher->stack_size = small ? static_cast<int>(kSmallestStack) : size;
}

bool IPC::set_callback(ChannelCallback callback, void* data) {
  const LogChannelScope scope(kLogIpc);
  ZEDIPC_IPC_LOG(kLogDebug, "%p->set_callback() called with %p (data=%p))\n",
                 static_cast<void*>(this), address(callback), data);
  if (callback != nullptr) {
    d->had_callback.store(true, std::memory_order_relaxed);
  } else if (!d->had_callback.load(std::memory_order_relaxed)) {
    // Without the lock: nobody has to wait for a callback to get rid of a channel that it has
    // nothing to do with.
    log_nothing_to_remove(dispatcher->wake_fd.load(std::memory_order_relaxed) != -1, this, d);
    return false;
  }
  std::uint64_t pass;
  {
    const DispatcherLock lock;
    const bool done =
        callback == nullptr ? remove_callback(*d, this) : add_callback(*d, {callback, data, this});
    if (!done) return false;
    pass = wake_dispatcher();
  }
  await_pass(pass);
  return true;
}

}  // namespace zedipc
