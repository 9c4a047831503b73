// SPDX-License-Identifier: MIT
/// @file
/// A channel over TCP.
#ifndef ZEDIPC_TCP_H
#define ZEDIPC_TCP_H

#include <zedipc/ipc.h>

namespace zedipc {

/// A channel over TCP, on IPv4 or IPv6.
///
/// `remote_addr()` and `local_addr()` give address and port, as in
/// "192.0.2.1:5899" or "[2001:db8::1]:5899"; a peer that reached an IPv6 socket
/// by IPv4 shows in the IPv4 form.
///
/// Connected sockets send without delay (TCP_NODELAY) and have keep-alive on,
/// with the system's times unless `setKeepalive` changes them.
///
/// Failures of the operations here are reported by their results alone; they
/// set no flag. For everything else see `IPC`.
class ZEDIPC_EXPORT TCP : public IPC {
 public:
  /// A closed channel.
  TCP();
  /// Removes the callback, waiting for its end where `IPC::set_callback` does,
  /// and closes.
  ~TCP() override;

  /// Makes this object a listener, closing what it was before. Blocks as long
  /// as the system takes to look a name up.
  /// @param port 0 for a port of the system's choice, which `local_addr()` shows
  /// @param node the address or host name to bind; null for all addresses,
  ///   IPv6 and IPv4
  /// @return false if no address could be bound, as with a null `node` where the
  ///   system has no IPv6
  bool listen(unsigned short port, const char* node = nullptr);

  /// Connects, closing what this object was before. Tries each address that
  /// the name has, in the system's order, and blocks besides as long as the
  /// system takes to look a name up.
  /// @param host an address or name; with `port` 0 it carries the port, as in
  ///   "host:1234" or "[::1]:1234". An IPv6 address may stand in brackets.
  /// @param port the port, 0 to take it from `host`
  /// @param timeout_msec the wait for each address in turn; negative for the
  ///   system's own
  /// @return false if there is no port, or no address answered
  bool connect(const char* host, unsigned short port = 0, int timeout_msec = -1);

  /// Waits for a peer; see `IPC::accept`. Ends with null when another thread
  /// closes the listener.
  IPC* accept(int timeout_msec = -1) override;

  /// Closes the channel; see `IPC::close`.
  void close() override;

  /// Adopts a connected socket made elsewhere, closing what this object was
  /// before. From now on the channel owns it. Sets no option on it, and the
  /// addresses stay empty.
  /// @param fd the socket's descriptor; it is not checked
  /// @return true
  bool setFD(int fd);

  /// Sets when an idle connection counts as dead: after `count` probes without
  /// an answer, the first one sent after `seconds` seconds of silence, and the
  /// others `seconds` seconds apart. A `count` of 0 or less switches keep-alive
  /// off; the system then refuses the rest, and the result is false. Does not
  /// block, and holds until the channel is closed.
  /// @return false if there is no socket, or the system refuses an option
  bool setKeepalive(int count, int seconds);

 private:
  class ZEDIPC_HIDDEN TcpPrivate;
};

}  // namespace zedipc

#endif  // ZEDIPC_TCP_H
