// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "ipc/ipc_private.h"
#include "ipc/socket.h"

#ifdef __GLIBC__
// The check behind the system's own FD_SET, which not every build type switches on.
// NOLINTNEXTLINE(bugprone-reserved-identifier,readability-redundant-declaration)
extern "C" long __fdelt_chk(long fd);
#endif

namespace zedipc {

int IPC::IpcPrivate::cb_stacksize = -1;
std::atomic<int> IPC::IpcPrivate::cb_handle{-1};
pthread_mutex_t IPC::IpcPrivate::cb_mutex = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
std::map<IPC::IpcPrivate*, IPC::IpcPrivate::cb_thread_data>* IPC::IpcPrivate::cb_map = nullptr;
bool IPC::IpcPrivate::cb_thread_running = false;
pthread_cond_t IPC::IpcPrivate::cb_cond = PTHREAD_COND_INITIALIZER;
bool IPC::IpcPrivate::cond_flag = false;

namespace {

using Private = IPC::IpcPrivate;

constexpr unsigned kSmallestStack = 16384;
constexpr std::size_t kAmpleStack = 1 << 20;

pthread_t cb_thread_id;     // of the last dispatcher that was started
unsigned starts = 0;        // dispatchers that were started
unsigned failed_start = 0;  // the last of them that got no pipe
std::mutex handle_mutex;    // keeps cb_handle open while a byte is written to it

class CallbackLock {
 public:
  CallbackLock() { pthread_mutex_lock(&Private::cb_mutex); }
  ~CallbackLock() { pthread_mutex_unlock(&Private::cb_mutex); }
  CallbackLock(const CallbackLock&) = delete;
  CallbackLock& operator=(const CallbackLock&) = delete;
};

void* address(ChannelCallback callback) { return reinterpret_cast<void*>(callback); }

// Waits for the end of a pass that has not begun to serve channels yet, provided that
// the wake-up for it was written under the lock that the caller still holds.
void wait_for_pass() {
  Private::cond_flag = false;
  while (!Private::cond_flag) pthread_cond_wait(&Private::cb_cond, &Private::cb_mutex);
}

void report_pass() {
  Private::cond_flag = true;
  pthread_cond_broadcast(&Private::cb_cond);
}

// Brings a dispatcher to life unless there is one. It can come and go again while this
// waits for it, and another caller may be starting it already; only a start that
// failed is a failure.
bool require_dispatcher() {
  while (Private::cb_map == nullptr) {
    if (!Private::cb_thread_running) {
      if (Private::callback_thread_create(&cb_thread_id, Private::cb_thread, nullptr) != 0) {
        return false;
      }
      Private::cb_thread_running = true;
      ++starts;
    }
    const unsigned awaited = starts;
    wait_for_pass();
    if (failed_start >= awaited) return false;
  }
  return true;
}

// The descriptors of one select.
class WatchSet {
 public:
  WatchSet() { clear(); }
  void clear() {
    FD_ZERO(&set_);
    highest_ = 0;
  }
  void add(int fd) {
    check_range(fd);
    FD_SET(fd, &set_);
    highest_ = std::max(highest_, fd);
  }
  [[nodiscard]] bool has(int fd) const {
    check_range(fd);
    return FD_ISSET(fd, &set_);
  }
  [[nodiscard]] int highest() const { return highest_; }
  int select() { return ::select(highest_ + 1, &set_, nullptr, nullptr, nullptr); }

 private:
  // A set has room for FD_SETSIZE descriptors; beyond them there is no going on. The tests
  // of this end with the process, before coverage is written.
  static void check_range(int fd) {
    if (fd < FD_SETSIZE) return;
#ifdef __GLIBC__
    __fdelt_chk(fd);
#endif
    std::abort();
  }

  fd_set set_;
  int highest_;
};

// The read end of the wake-up pipe, whose write end is cb_handle.
int open_wake_pipe() {
  int ends[2];
  // A byte that finds the pipe full is not needed: there are others in it.
  if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) == -1) return -1;
  const std::lock_guard<std::mutex> lock(handle_mutex);
  Private::cb_handle.store(ends[1], std::memory_order_relaxed);
  return ends[0];
}

void close_wake_pipe(int read_end) {
  const std::lock_guard<std::mutex> lock(handle_mutex);
  close_fd(Private::cb_handle.exchange(-1, std::memory_order_relaxed));
  close_fd(read_end);
}

// Also called without the lock, and with a channel's read_mutex held.
void wake_dispatcher() {
  {
    const std::lock_guard<std::mutex> lock(handle_mutex);
    const int handle = Private::cb_handle.load(std::memory_order_relaxed);
    const char byte = 0;
    while (handle != -1 && ::write(handle, &byte, 1) == -1 && errno == EINTR) {
    }
  }
  ZEDIPC_IPC_LOG(kLogDebug, "notify_cb_thread(): notified callback thread!\n");
}

// One byte a pass: more of them cause a few passes more and do no harm.
void take_wake_up(int read_end) {
  char byte;
  while (::read(read_end, &byte, 1) == -1 && errno == EINTR) {
  }
  ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): got notification on fd=%d\n", read_end);
}

// Calls the channel's callback if there is something to tell. The callback may remove
// or delete any channel, so nothing of `entry` may be used after the call.
void serve(Private* d, const Private::cb_thread_data& entry, const WatchSet& ready) {
  const auto [callback, data, ipc] = entry;
  const int fd = d->fd.load(std::memory_order_acquire);
  if (fd < 0) return;
  const int state = d->cb_state.load(std::memory_order_acquire);
  if ((state & CB_LOCKED) != 0) {
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): callback %p is locked (ipc=%p, d=%p, cb_state=%d)!\n",
                   address(callback), static_cast<void*>(ipc), static_cast<void*>(d), state);
    return;
  }
  if (!ready.has(fd)) {
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): !FD_ISSET() on fd=%d (ipc=%p, d=%p)!\n", fd,
                   static_cast<void*>(ipc), static_cast<void*>(d));
    return;
  }
  const Private::Input input = d->take_input(fd);
  switch (input) {
    case Private::Input::kClosed:
      return;
    case Private::Input::kNone:
      ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): !poll_in()->no data (ipc=%p, d=%p)!\n",
                     static_cast<void*>(ipc), static_cast<void*>(d));
      return;
    case Private::Input::kUnread:
      ZEDIPC_IPC_LOG(kLogDebug,
                     "cb_thread(): callback %p temporary disabled (ipc=%p, d=%p, cb_state=%d)!\n",
                     address(callback), static_cast<void*>(ipc), static_cast<void*>(d),
                     d->cb_state.load(std::memory_order_acquire));
      return;
    case Private::Input::kEnd:
    case Private::Input::kFailure:
      ZEDIPC_IPC_LOG(kLogDebug,
                     "cb_thread(): set lock flag for callback %p (ipc=%p, d=%p), reason: %s!\n",
                     address(callback), static_cast<void*>(ipc), static_cast<void*>(d),
                     input == Private::Input::kFailure ? "error" : "eof");
      break;
    case Private::Input::kData:
      break;
  }
  ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): call callback %p with data %p (ipc=%p, d=%p)!\n",
                 address(callback), data, static_cast<void*>(ipc), static_cast<void*>(d));
  callback(data, ipc);
}

void serve_all(const WatchSet& ready) {
  for (auto at = Private::cb_map->begin(); at != Private::cb_map->end();) {
    Private* const served = at->first;
    serve(served, at->second, ready);
    // Looked up afresh, since the callback may have removed this entry and others.
    at = Private::cb_map->upper_bound(served);
  }
}

void watch_all(WatchSet& watched) {
  constexpr int kWanted = CB_LOCKED | CB_ARMED;
  watched.clear();
  for (const auto& [d, entry] : *Private::cb_map) {
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

// Passes, until one finds no channel registered.
void run_dispatcher(int wake_up) {
  WatchSet watched;
  for (;;) {
    watched.add(wake_up);
    pthread_mutex_unlock(&Private::cb_mutex);
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): select() called (maxfd=%d)!\n", watched.highest());
    const int result = watched.select();
    ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): select() returned (ret=%d)!\n", result);
    pthread_mutex_lock(&Private::cb_mutex);
    if (Private::cb_map->empty()) return;
    if (result != -1) {
      if (watched.has(wake_up)) take_wake_up(wake_up);
      serve_all(watched);
    }
    watch_all(watched);
    report_pass();
  }
}

// A detached thread; a size of 0 means the system's default. 0, or the error's number.
int create_thread(std::size_t stack_size, pthread_t* thread, void* (*start)(void*), void* arg) {
  pthread_attr_t attributes;
  int problem = pthread_attr_init(&attributes);
  if (problem != 0) return problem;
  problem = pthread_attr_setdetachstate(&attributes, PTHREAD_CREATE_DETACHED);
  if (problem == 0 && stack_size != 0) problem = pthread_attr_setstacksize(&attributes, stack_size);
  if (problem == 0) problem = pthread_create(thread, &attributes, start, arg);
  pthread_attr_destroy(&attributes);
  return problem;
}

}  // namespace

int IPC::IpcPrivate::callback_thread_create(unsigned long* thread, void* (*start)(void*),
                                            void* arg) {
  std::size_t size = 0;
  if (cb_stacksize > 0) size = std::max<long>(cb_stacksize, sysconf(_SC_THREAD_STACK_MIN));
  for (;; size *= 2) {
    const int problem = create_thread(size, thread, start, arg);
    // Too small, as it is where thread-local variables take their place from it.
    if (problem != EINVAL || size == 0 || size >= kAmpleStack) return problem;
  }
}

void* IPC::IpcPrivate::cb_thread(void* /*unused*/) {
  const LogChannelScope scope(kLogIpc);
  {
    const CallbackLock lock;
    const int wake_up = open_wake_pipe();
    if (wake_up == -1) {
      cb_thread_running = false;
      failed_start = starts;
      report_pass();
      return nullptr;
    }
    report_pass();
    cb_map = new std::map<IpcPrivate*, cb_thread_data>;
    run_dispatcher(wake_up);
    close_wake_pipe(wake_up);
    delete cb_map;
    cb_map = nullptr;
    cb_thread_running = false;
    report_pass();
  }
  ZEDIPC_IPC_LOG(kLogDebug, "cb_thread(): terminate!\n");
  return nullptr;
}

// All under read_mutex, so that a channel which is closed and perhaps connected again
// meanwhile has either been through this before or not at all. It is locked until the new
// socket, which can have the number of the old one, is ready.
IPC::IpcPrivate::Input IPC::IpcPrivate::take_input(int watched_fd) {
  const std::lock_guard<std::mutex> lock(read_mutex);
  if (fd.load(std::memory_order_acquire) != watched_fd) return Input::kClosed;
  if ((cb_state.load(std::memory_order_acquire) & CB_LOCKED) != 0) return Input::kClosed;
  if (!poll_in_locked(0)) return Input::kNone;
  if ((cb_state.load(std::memory_order_relaxed) & CB_ARMED) == 0) return Input::kUnread;
  const bool failed = error_flag.load(std::memory_order_relaxed);
  const bool ended = eof_flag.load(std::memory_order_relaxed);
  if (failed || ended) cb_state.fetch_or(CB_LOCKED, std::memory_order_relaxed);
  cb_state.fetch_and(~CB_ARMED, std::memory_order_relaxed);
  if (failed) return Input::kFailure;
  return ended ? Input::kEnd : Input::kData;
}

void IPC::IpcPrivate::notify_cb_thread(bool wait) {
  if (cb_handle.load(std::memory_order_relaxed) == -1) return;
  if (!wait) {
    wake_dispatcher();
    return;
  }
  const CallbackLock lock;
  if (cb_handle.load(std::memory_order_relaxed) == -1) return;
  wake_dispatcher();
  wait_for_pass();
}

// For what a channel may have to clean up besides; nothing does.
void IPC::IpcPrivate::cb_cleanup(IpcPrivate* /*channel*/) {}

void IPC::set_callback_stacksize(int size) {
  const CallbackLock lock;
  if (IpcPrivate::cb_map != nullptr) return;
  // A negative size is a large one here: it stays, and means the system's default.
  const bool small = static_cast<unsigned>(size) < kSmallestStack;
  IpcPrivate::cb_stacksize = small ? static_cast<int>(kSmallestStack) : size;
}

bool IPC::set_callback(ChannelCallback callback, void* data) {
  const LogChannelScope scope(kLogIpc);
  ZEDIPC_IPC_LOG(kLogDebug, "%p->set_callback() called with %p (data=%p))\n",
                 static_cast<void*>(this), address(callback), data);
  return callback == nullptr ? d->remove_callback(this) : d->add_callback(this, callback, data);
}

bool IPC::IpcPrivate::add_callback(IPC* ipc, ChannelCallback callback, void* data) {
  const CallbackLock lock;
  if (!require_dispatcher()) return false;
  (*cb_map)[this] = {callback, data, ipc};
  cb_state.fetch_or(CB_REGISTERED | CB_ARMED, std::memory_order_relaxed);
  ZEDIPC_IPC_LOG(kLogDebug, "%p->set_callback(): registered callback %p (d=%p))\n",
                 static_cast<void*>(ipc), address(callback), static_cast<void*>(this));
  notify_cb_thread(false);
  wait_for_pass();
  return true;
}

bool IPC::IpcPrivate::remove_callback(IPC* ipc) {
  const CallbackLock lock;
  if (cb_map == nullptr) {
    ZEDIPC_IPC_LOG(kLogDebug,
                   "%p->set_callback(): empty callback map for this object (d=%p), done.\n",
                   static_cast<void*>(ipc), static_cast<void*>(this));
    return false;
  }
  const auto entry = cb_map->find(this);
  if (entry == cb_map->end()) {
    ZEDIPC_IPC_LOG(kLogDebug,
                   "%p->set_callback(): no callback registered for this object (d=%p), done.\n",
                   static_cast<void*>(ipc), static_cast<void*>(this));
    return false;
  }
  ZEDIPC_IPC_LOG(kLogDebug, "%p->set_callback(): unregister callback %p for this object (d=%p)\n",
                 static_cast<void*>(ipc), address(entry->second.callback),
                 static_cast<void*>(this));
  cb_map->erase(entry);
  cb_cleanup(this);
  cb_state.fetch_and(~CB_REGISTERED, std::memory_order_relaxed);
  notify_cb_thread(false);
  // The dispatcher cannot wait for itself, and is not on this channel any more.
  if (pthread_equal(pthread_self(), cb_thread_id) == 0) wait_for_pass();
  return true;
}

}  // namespace zedipc
