// SPDX-License-Identifier: MIT
/// @file
/// The message channel: one stream socket, as raw bytes or as frames.
#ifndef ZEDIPC_IPC_H
#define ZEDIPC_IPC_H

#include <string>
#include <vector>

#include <zedipc/export.h>

namespace zedipc {

class IPC;

/// The type of a channel's callback; `data` is what was given to
/// `IPC::set_callback`, `ipc` the channel. It must not throw.
using ChannelCallback = void (*)(void* data, IPC* ipc);

/// One stream socket, either connected to a peer or listening for peers.
///
/// `Pipe` and `TCP` make the socket; everything else is the same for both and
/// stands here.
///
/// Timeouts are milliseconds as for poll(2): 0 returns at once, a negative
/// value waits without limit. They hold for each wait and not for the whole
/// call: every piece of data that arrives, and every signal, starts one afresh.
///
/// Failures are reported by results and by two flags, `eof()` and `error()`,
/// that stay set until the channel is closed. No operation closes the channel
/// because it failed; the owner does. A timeout sets no flag. A flag that was
/// set while the channel had no socket survives `close` and a later connection.
///
/// Threads: any thread may call any operation. One reader and one writer work
/// side by side; several readers, or several writers, take turns call by call.
/// A frame is two writes and several reads, so frames need one reader at a time
/// and a lock around writers. Set-up (`listen`, `connect`, `setFD`) is for the
/// owner, with no other thread on the object. `close` may come from any thread
/// and ends the calls that others are blocked in.
///
/// Objects are not copyable. The table of virtual functions, in its order, and
/// the layout (that table's pointer and one pointer more) are binary interface.
class ZEDIPC_EXPORT IPC {
 public:
  class ZEDIPC_HIDDEN IpcPrivate;

  /// What `read_msg` stores a payload in. Derive from it to receive into a
  /// container of your own; it is used only during the call.
  class ZEDIPC_EXPORT IpcBuffer {
   public:
    virtual ~IpcBuffer();
    /// Makes the buffer empty.
    virtual void clear() = 0;
    /// Makes the buffer exactly `size` bytes long, new bytes being 0. Called once
    /// for a frame, before its payload comes, with a size within the reader's limit.
    virtual void resize(int size) = 0;
    /// The first byte; null if the buffer is empty.
    virtual void* data() = 0;
  };

  /// Takes ownership of `channel`. For `Pipe` and `TCP`; derive from those.
  explicit IPC(IpcPrivate* channel);
  IPC(const IPC&) = delete;
  IPC& operator=(const IPC&) = delete;

  /// Frees the channel's state. `Pipe` and `TCP` close the socket first.
  virtual ~IPC();

  /// Whether the peer ended the stream; known once an operation has found it.
  virtual bool eof();
  /// Whether an operation failed, be it for the connection or for its arguments.
  virtual bool error();

  /// Waits for a peer on a listening `Pipe` or `TCP`.
  /// @return a new connected channel, which the caller owns and deletes; null
  ///   on a timeout or failure, on a channel that does not listen, and always
  ///   on this base class.
  virtual IPC* accept(int timeout_msec);

  /// Closes the socket and clears the flags and addresses. Reads and writes that
  /// other threads are blocked in have ended when it returns; an `accept` ends
  /// soon after. Does nothing without a socket. A callback stays set; what it
  /// takes to be called for a later connection stands at `set_callback`.
  virtual void close();

  /// Writes all of `size` bytes. Blocks without limit while the peer does not
  /// read. Nothing to write succeeds on any channel.
  /// @return false, with `error()` set, if not all went out, if there is no
  ///   connection, if `data` is null, or if `size` is negative
  virtual bool write(const void* data, int size);

  /// Reads up to `size` bytes: waits up to `timeout_msec` for the first, and
  /// up to `next_timeout_msec` for each further piece.
  /// @return the number of bytes stored; fewer than `size` after a timeout, or
  ///   with `eof()` or `error()` set. It is 0 with `error()` set if there is no
  ///   connection, if `data` is null (for 0 bytes too), or if `size` is negative.
  virtual int read(void* data, int size, int timeout_msec, int next_timeout_msec);
  /// The same with one timeout for every piece.
  virtual int read(void* data, int size, int timeout_msec);

  /// Sends one frame: the header with `msg_id` and `msg_tag`, then `size` bytes.
  /// Blocks as `write` does. A size of 0 is a valid message.
  /// @return false if `data` is null with a size above 0, if `size` is negative or
  ///   above 2147483643 (nothing is sent and no flag is set then), or if a write
  ///   failed, which can leave the peer with a part of a frame
  virtual bool write_msg(unsigned int msg_id, int msg_tag, const void* data, int size);
  /// Sends the vector's bytes as one frame.
  virtual bool write_msg(unsigned int msg_id, int msg_tag, const std::vector<unsigned char>& data);
  /// Sends the vector's bytes as one frame.
  virtual bool write_msg(unsigned int msg_id, int msg_tag, const std::vector<char>& data);

  /// Receives one frame: see the overload for `IpcBuffer`.
  virtual bool read_msg(unsigned int msg_id, int& msg_tag, std::vector<unsigned char>& buffer,
                        int size_limit, int timeout_msec);
  /// Receives one frame: see the overload for `IpcBuffer`.
  virtual bool read_msg(unsigned int msg_id, int& msg_tag, std::vector<char>& buffer,
                        int size_limit, int timeout_msec);

  /// Waits up to `timeout_msec` for something that a read would find. Takes
  /// nothing from the stream, and queues behind a read that is waiting.
  /// @return true if there is data, and whenever `eof()` or `error()` is set,
  ///   which a call on a channel without a connection does itself.
  virtual bool poll_in(int timeout_msec);

  /// The peer's address, "" if there is none: address and port for `TCP`,
  /// process, user and group id for `Pipe`. The text is valid as long as the
  /// object, and changes when the channel connects, listens or closes.
  virtual const char* remote_addr() const;

  /// Has `callback` called when the channel has input, or replaces the callback
  /// that it had; a null `callback` removes it.
  ///
  /// The callback reads; the channel is left alone from the call until somebody
  /// has read from it, so that one message gives one call. What counts is a
  /// `read`, of 0 bytes too, or a `read_msg` that came to a payload: after an
  /// empty frame, a refused one or one whose header failed, no further call comes
  /// until there is such a read or a new `set_callback`. When the peer ends the
  /// stream, or the socket fails, one last call comes, with `eof()` or `error()`
  /// set. A channel may be given its callback before it connects. One that
  /// listens never has it called.
  ///
  /// A callback stays with a channel that is closed and connected again, but a
  /// channel that is left alone when its connection ends is still left alone on
  /// the next one. That is so after the last call as well, unless somebody has
  /// read since. So set the callback again after each `connect` or `setFD`: then
  /// it is called, whatever happened before.
  ///
  /// Threads: one thread of the library, which exists while any channel has a
  /// callback, calls the callbacks of all channels, one at a time. A callback that
  /// takes long delays all others, and so does a `read` of another thread that
  /// waits for data on a channel with a callback.
  ///
  /// Blocks until that thread has taken the change in, which includes the end of a
  /// callback that is running: after a removal the callback will not be called any
  /// more and the channel may be deleted. In a callback it returns at once, for any
  /// channel, and so do `connect` and `setFD` when they have the socket. A callback
  /// may delete its own channel, or another. It must not wait for another thread that
  /// sets or removes a callback, or that connects or deletes a channel: such a
  /// thread waits for the callback to end.
  ///
  /// A channel with a callback needs a descriptor below 1024 (FD_SETSIZE of
  /// select(2)), and so does the library's own pipe; otherwise the process is
  /// aborted. The descriptor is to be closed by `close` alone.
  ///
  /// @param callback what to call; null for a removal
  /// @param data handed to the callback, and stays the caller's; not used in a
  ///   removal
  /// @return false if the library's thread cannot be started, and for a removal
  ///   if there is no callback
  virtual bool set_callback(ChannelCallback callback, void* data);

  /// Receives one frame that begins with `msg_id`, skipping whatever stands
  /// ahead of it.
  ///
  /// `timeout_msec` is the wait for the frame's first bytes. Once they have
  /// come, each further piece of the header has 10 seconds, and each piece of
  /// the payload, or of what is skipped, has 10 seconds or `timeout_msec`,
  /// whichever is longer.
  ///
  /// A frame with a payload above `size_limit` bytes is refused, and the next
  /// call looks for a frame inside what it left in the stream.
  ///
  /// @param msg_id the word that begins the frames, as the peer writes it
  /// @param msg_tag receives the frame's tag; untouched if the header fails
  /// @param buffer receives the payload; empty if the header fails, at the
  ///   payload's length but only partly filled if the payload is cut short
  /// @param size_limit the longest payload to accept, in bytes. A peer that announces
  ///   so much makes this process allocate it; a string or vector gets 64 KiB at first,
  ///   and the rest as the payload comes, or when it is cut short.
  /// @param timeout_msec the wait for the first bytes, in milliseconds
  /// @return true for a whole message. After false, `eof()` and `error()` tell
  ///   the end of the stream from a timeout or a refused frame.
  virtual bool read_msg(unsigned int msg_id, int& msg_tag, IpcBuffer& buffer, int size_limit,
                        int timeout_msec);
  /// Sends the string's bytes as one frame, without a terminating zero.
  virtual bool write_msg(unsigned int msg_id, int msg_tag, const std::string& data);
  /// Receives one frame: see the overload for `IpcBuffer`.
  virtual bool read_msg(unsigned int msg_id, int& msg_tag, std::string& buffer, int size_limit,
                        int timeout_msec);

  /// Whether this object listens. Never true for what `accept` returned.
  virtual bool is_server();
  /// The own end's address, "" if there is none; as for `remote_addr`.
  virtual const char* local_addr() const;

  /// The socket, which stays the channel's; -1 if there is none.
  int getFD() const;

  /// The library's name and version as one text that lives for ever. The date in it
  /// is a part of that text, and not the date of this build.
  static const char* getVersion();
  /// The package's version, as a text that lives for ever.
  static const char* ipc_GetVersion();

  /// Sets the stack size, in bytes, of the thread that calls callbacks, from its
  /// next start on; without effect while it runs. Less than 16384 counts as 16384,
  /// a negative number means the system's default, which is also the initial state.
  /// A size that is too small for any thread of this process is raised when the
  /// thread starts: some processors need more (64-bit ARM 128 KiB), and the
  /// process's thread-local variables take their place from the stack.
  static void set_callback_stacksize(int size);

 protected:
  IpcPrivate* d;  ///< the socket, its flags and locks; owned
};

}  // namespace zedipc

#endif  // ZEDIPC_IPC_H
