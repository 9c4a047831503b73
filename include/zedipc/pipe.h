// SPDX-License-Identifier: MIT
/// @file
/// A channel between processes of one machine.
#ifndef ZEDIPC_PIPE_H
#define ZEDIPC_PIPE_H

#include <zedipc/ipc.h>

namespace zedipc {

/// A channel over a local stream socket, named by the path of its socket file.
///
/// The listening object owns the file: it removes it when it closes or is
/// destroyed, not asking whether another process has taken the name meanwhile.
///
/// `remote_addr()` gives the peer's process, user and group id as the kernel
/// knows them, as in "1234 0 0"; `local_addr()` stays empty.
///
/// Failures of the operations here are reported by their results alone; they
/// set no flag. For everything else see `IPC`.
class ZEDIPC_EXPORT Pipe : public IPC {
 public:
  /// A closed channel.
  Pipe();
  /// The same; the argument has no effect.
  explicit Pipe(int);
  /// Removes the callback, waiting for its end where `IPC::set_callback` does,
  /// and closes.
  ~Pipe() override;

  /// Makes this object a listener, closing what it was before.
  ///
  /// A socket file that no process listens on any more is replaced, and so is
  /// any other file, or empty directory, under that name. Blocks while a live
  /// listener of that name has its backlog full. Who may connect is settled by the
  /// file's permissions, which are what the process's umask leaves.
  /// @param name the path, at most 107 bytes
  /// @return false if the name is bad or taken by a live listener
  bool listen(const char* name);

  /// Connects to a listener, closing what this object was before. Blocks while
  /// the listener's backlog is full.
  /// @param name the path, at most 107 bytes
  /// @return false if the name is bad or nobody listens there
  bool connect(const char* name);

  /// Waits for a peer; see `IPC::accept`. Ends with null when another thread
  /// closes the listener.
  IPC* accept(int timeout_msec = -1) override;

  /// Closes, and removes the socket file of a listener.
  void close() override;

 private:
  class ZEDIPC_HIDDEN PipePrivate;
  ZEDIPC_HIDDEN PipePrivate* pipe_private() const;
};

}  // namespace zedipc

#endif  // ZEDIPC_PIPE_H
