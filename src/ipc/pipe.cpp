// SPDX-License-Identifier: MIT
// Channels over local sockets: how the socket comes to be, and the socket file.
#include <zedipc/pipe.h>

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "ipc/ipc_private.h"
#include "ipc/socket.h"

namespace zedipc {

class Pipe::PipePrivate : public IPC::IpcPrivate {
 public:
  // The socket file that this object removes. Of several threads that close the listener
  // only one takes it.
  void own_path(std::string name) {
    const MutexLock lock(path_mutex_);
    path_.swap(name);
    owns_path_ = true;
  }
  std::string path() {
    const MutexLock lock(path_mutex_);
    return path_;
  }
  bool take_path(std::string& name) {
    const MutexLock lock(path_mutex_);
    name.swap(path_);
    path_.clear();
    return std::exchange(owns_path_, false);
  }

 private:
  Mutex path_mutex_;
  std::string path_ GUARDED_BY(path_mutex_);
  bool owns_path_ GUARDED_BY(path_mutex_) = false;  // an empty name is a name too
};

namespace {

// The address of a socket file.
class FileAddress {
 public:
  static bool valid(const char* name) {
    return name != nullptr && std::strlen(name) < sizeof(sockaddr_un::sun_path);
  }

  explicit FileAddress(const char* name) {
    const std::size_t length = std::strlen(name);
    address_.sun_family = AF_UNIX;
    std::memcpy(address_.sun_path, name, length + 1);
    size_ = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length + 1);
  }

  [[nodiscard]] const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&address_); }
  [[nodiscard]] socklen_t size() const { return size_; }

 private:
  sockaddr_un address_{};
  socklen_t size_;
};

int connect_to(int fd, const FileAddress& address) {
  return connect_socket(fd, address.get(), address.size());
}

bool bind_and_listen(int fd, const FileAddress& address) {
  // Small on purpose: peers are few, and one that finds it full waits in connect.
  constexpr int kBacklog = 1;
  return ::bind(fd, address.get(), address.size()) == 0 && ::listen(fd, kBacklog) == 0;
}

bool make_listener(int fd, const char* name) {
  const FileAddress address(name);
  if (bind_and_listen(fd, address)) return true;
  // The name is taken. If nobody answers there, a process that died left it. Any other file
  // goes the same way.
  if (errno != EADDRINUSE || connect_to(fd, address) == 0) return false;
  std::remove(name);
  return bind_and_listen(fd, address);
}

// The peer's process and owner; a pid of 0 if the kernel does not tell.
ucred peer_credentials(int fd) {
  ucred peer{};
  socklen_t length = sizeof peer;
  if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &length) == -1) peer.pid = 0;
  return peer;
}

void store_credentials(char* remote_addr, const ucred& peer) {
  *remote_addr = '\0';
  if (peer.pid == 0) return;
  std::snprintf(remote_addr, kSockaddrText, "%d %u %u", peer.pid, peer.uid, peer.gid);
}

// Logs a name that is not valid.
bool check_name(const char* operation, const char* name) {
  if (FileAddress::valid(name)) return true;
  ZEDIPC_IPC_LOG(kLogError, "Pipe::%s(): invalid pipe name '%s'\n", operation,
                 name == nullptr ? "<NULL>" : name);
  return false;
}

int make_socket(const char* operation) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd == -1) ZEDIPC_IPC_LOG(kLogError, "Pipe::%s(): socket() failed\n", operation);
  return fd;
}

}  // namespace

Pipe::Pipe() : IPC(new PipePrivate) {}

Pipe::Pipe(int /*unused*/) : Pipe() {}

Pipe::~Pipe() {
  const LogChannelScope scope(kLogIpc);
  IPC::set_callback(nullptr, nullptr);
  Pipe::close();
}

Pipe::PipePrivate* Pipe::pipe_private() const { return static_cast<PipePrivate*>(d); }

bool Pipe::listen(const char* name) {
  const LogChannelScope scope(kLogIpc);
  close();
  if (!check_name("listen", name)) return false;
  std::string path = name;
  UniqueFd fd(make_socket("listen"));
  if (!fd.valid()) return false;
  if (!make_listener(fd.get(), name)) {
    close_fd(fd.release());
    ZEDIPC_IPC_LOG(kLogError, "Pipe::listen(): bind()/listen() on pipe %s failed (fd=%d)\n", name,
                   -1);
    return false;
  }
  pipe_private()->own_path(std::move(path));
  ZEDIPC_IPC_LOG(kLogDebug, "Pipe::listen(): listening on pipe %s, fd=%d\n", name, fd.get());
  d->publish_listener(fd.release());
  return true;
}

bool Pipe::connect(const char* name) {
  const LogChannelScope scope(kLogIpc);
  close();
  if (!check_name("connect", name)) return false;
  UniqueFd fd(make_socket("connect"));
  if (!fd.valid()) return false;
  if (connect_to(fd.get(), FileAddress(name)) == -1) {
    // With a socket, so that close clears the flags, as it does not without one.
    d->fd.store(fd.release(), std::memory_order_release);
    close();
    ZEDIPC_IPC_LOG(kLogError, "Pipe::connect(): connect() to %s failed\n", name);
    return false;
  }
  const ucred peer = peer_credentials(fd.get());
  store_credentials(d->remote_addr, peer);
  d->local_addr[0] = '\0';
  if (peer.pid != 0) {
    ZEDIPC_IPC_LOG(kLogDebug,
                   "Pipe::connect(): connected to pipe %s (fd=%d) with pid=%d (uid=%u,gid=%u)!\n",
                   name, fd.get(), peer.pid, peer.uid, peer.gid);
  } else {
    ZEDIPC_IPC_LOG(kLogDebug, "Pipe::connect(): connected to pipe %s\n", name);
  }
  d->publish_socket(fd.release());
  return true;
}

IPC* Pipe::accept(int timeout_msec) {
  const LogChannelScope scope(kLogIpc);
  UniqueFd fd(accept_socket(*d, timeout_msec, "Pipe::accept", nullptr));
  if (!fd.valid()) return nullptr;
  const ucred peer = peer_credentials(fd.get());
  const std::string path = pipe_private()->path();
  auto session = std::make_unique<Pipe>();
  store_credentials(session->d->remote_addr, peer);
  if (peer.pid != 0) {
    ZEDIPC_IPC_LOG(
        kLogDebug,
        "Pipe::accept(): accepted new session on pipe %s (afd=%d) from pid=%d (uid=%u,gid=%u)!\n",
        path.c_str(), fd.get(), peer.pid, peer.uid, peer.gid);
  } else {
    ZEDIPC_IPC_LOG(kLogDebug, "Pipe::accept(): accepted new session on pipe %s (afd=%d)!\n",
                   path.c_str(), fd.get());
  }
  session->d->publish_socket(fd.release());
  return session.release();
}

void Pipe::close() {
  const LogChannelScope scope(kLogIpc);
  IPC::close();
  std::string path;
  // Also if another process has taken the name over.
  if (pipe_private()->take_path(path)) std::remove(path.c_str());
}

}  // namespace zedipc
