// SPDX-License-Identifier: MIT
// Messages on the byte stream of a channel: a frame is a header and a payload.
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <limits>
#include <utility>

#include "ipc/ipc_private.h"

namespace zedipc {

namespace {

// A frame begins with three 32-bit words, most significant byte first: the id,
// the number of bytes after this second word, and the tag.
constexpr int kHeaderSize = 12;
constexpr int kTagSize = 4;

// Once a frame has begun, its peer is in the middle of sending: each further piece has at
// least this long to come, but not for ever.
constexpr int kPieceTimeout = 10000;

using Header = std::array<unsigned char, kHeaderSize>;
using Id = std::array<unsigned char, 4>;

void put_word(unsigned char* to, std::uint32_t word) {
  to[0] = static_cast<unsigned char>(word >> 24);
  to[1] = static_cast<unsigned char>(word >> 16);
  to[2] = static_cast<unsigned char>(word >> 8);
  to[3] = static_cast<unsigned char>(word);
}

std::uint32_t get_word(const unsigned char* from) {
  return static_cast<std::uint32_t>(from[0]) << 24 | static_cast<std::uint32_t>(from[1]) << 16 |
         static_cast<std::uint32_t>(from[2]) << 8 | static_cast<std::uint32_t>(from[3]);
}

Header make_header(unsigned int msg_id, int msg_tag, int size) {
  Header header;
  put_word(header.data(), msg_id);
  put_word(&header[4], static_cast<std::uint32_t>(size) + kTagSize);
  put_word(&header[8], static_cast<std::uint32_t>(msg_tag));
  return header;
}

// The size of the payload, which is negative where the length word makes no sense.
int payload_size(const Header& header) {
  const auto length = static_cast<std::int32_t>(get_word(&header[4]));
  return std::max(length, std::numeric_limits<std::int32_t>::min() + kTagSize) - kTagSize;
}

// A larger payload has no length word.
constexpr int kMaxPayload = std::numeric_limits<std::int32_t>::max() - kTagSize;

// The size of a container as a payload; negative if it is too large for one.
template <typename Container>
int payload_size_of(const Container& data) {
  return data.size() > kMaxPayload ? -1 : static_cast<int>(data.size());
}

// The first place at which the id can begin, as far as these bytes tell: after all of them
// at the latest.
int first_candidate(const unsigned char* bytes, int count, const Id& id) {
  const unsigned char* const end = bytes + count;
  const unsigned char* at = bytes;
  while (!std::equal(at, std::min(at + id.size(), end), id.data())) ++at;
  return static_cast<int>(at - bytes);
}

// Reads on from a header that does not begin with the id, to the end of the next one that
// may. Takes no byte after it: the channel's user may wait for the next frame with select.
bool skip_garbage(IPC::IpcPrivate& channel, const Id& id, Header& header, int timeout) {
  constexpr int kOld = kHeaderSize - 1;
  // Looked at in one go. It lies on the stack, which may be small in a callback.
  constexpr int kBlock = 2048;
  std::array<unsigned char, kOld + kBlock + kHeaderSize> bytes;
  std::memcpy(bytes.data(), &header[1], kOld);
  // A log of this level has a line for each byte of the search.
  int count = 1;
  if (!dbg_log_enabled(kLogDebug)) {
    const int ahead = channel.peek(&bytes[kOld], kBlock, timeout);
    if (ahead == 0) return false;
    count = first_candidate(bytes.data(), kOld + ahead, id) + 1;
  }
  if (channel.read(&bytes[kOld], count, timeout, timeout, false) != count) return false;
  std::memcpy(header.data(), &bytes[static_cast<std::size_t>(count) - 1], kHeaderSize);
  return true;
}

// Reads the next header that begins with `msg_id`. `timeout` is the wait for the first bytes.
bool find_header(IPC::IpcPrivate& channel, unsigned int msg_id, Header& header, int timeout) {
  Id id;
  put_word(id.data(), msg_id);
  if (channel.read(header.data(), kHeaderSize, timeout, kPieceTimeout, false) != kHeaderSize) {
    return false;
  }
  while (get_word(header.data()) != msg_id) {
    if (!skip_garbage(channel, id, header, std::max(timeout, kPieceTimeout))) return false;
  }
  return true;
}

// Logs what is wrong with a size that is not accepted. The payload stays in the stream, where
// the next call searches it.
bool accept_size(const Header& header, int size_limit) {
  const int size = payload_size(header);
  if (size < 0) {
    ZEDIPC_IPC_LOG(kLogError, "IPC::read_msg() -> size<0 (%d<0)\n", size);
    return false;
  }
  if (size > size_limit) {
    ZEDIPC_IPC_LOG(kLogError, "IPC::read_msg() -> size>size_limit (%d>%d)\n", size, size_limit);
    return false;
  }
  return true;
}

// What a payload may take before any of it has come, with the byte after a string's end.
constexpr std::size_t kUnseen = 65536 - 1;

// The buffer of the container that this thread reads into. The table of IpcBuffer is binary
// interface, and has no place for what only these can do.
thread_local GrowingBuffer* containers_buffer = nullptr;

// A standard container as a receive buffer.
template <typename Container>
class BufferAdaptor : public GrowingBuffer {
 public:
  explicit BufferAdaptor(Container& container)
      : container_(container), outer_(std::exchange(containers_buffer, this)) {}
  ~BufferAdaptor() override { containers_buffer = outer_; }
  BufferAdaptor(const BufferAdaptor&) = delete;
  BufferAdaptor& operator=(const BufferAdaptor&) = delete;

  void clear() override { container_.clear(); }
  void resize(int size) override { container_.resize(static_cast<std::size_t>(size), 0); }
  void* data() override { return container_.empty() ? nullptr : &container_[0]; }
  int grow(int filled, int size) override {
    const std::size_t earned = std::max(kUnseen, 2 * static_cast<std::size_t>(filled));
    const std::size_t room = std::max(earned, container_.capacity());
    container_.resize(std::min(room, static_cast<std::size_t>(size)), 0);
    return static_cast<int>(container_.size());
  }

 private:
  Container& container_;
  GrowingBuffer* const outer_;
};

// Reads a payload and gives how much of it has come; the buffer has its full size in any case.
// A large container gets that size bit by bit, but not where the log shows for each piece how
// much is still to come.
int read_payload(IPC::IpcPrivate& channel, IPC::IpcBuffer& buffer, int size, int timeout) {
  const bool small = static_cast<std::size_t>(size) <= kUnseen;
  if (small || &buffer != containers_buffer || dbg_log_enabled(kLogDebug)) {
    buffer.resize(size);
    return size == 0 ? 0 : channel.read(buffer.data(), size, timeout, timeout, true);
  }
  const int read_bytes = channel.read(*containers_buffer, size, timeout);
  if (read_bytes != size) buffer.resize(size);
  return read_bytes;
}

}  // namespace

bool IPC::write_msg(unsigned int msg_id, int msg_tag, const void* data, int size) {
  const LogChannelScope scope(kLogIpc);
  if (size < 0 || size > kMaxPayload || (size > 0 && data == nullptr)) return false;
  const Header header = make_header(msg_id, msg_tag, size);
  if (!write(header.data(), kHeaderSize)) {
    ZEDIPC_IPC_LOG(kLogError, "IPC::write_msg() -> write header (12 bytes)\n");
    return false;
  }
  if (!write(data, size)) {
    ZEDIPC_IPC_LOG(kLogError, "IPC::write_msg() -> write data (%d bytes)\n", size);
    return false;
  }
  const auto frame_size = static_cast<int>(static_cast<unsigned int>(size) + kHeaderSize);
  ZEDIPC_IPC_LOG(kLogDebug,
                 "IPC::write_msg() -> wrote %d bytes successfully (payload: %d bytes).\n",
                 frame_size, size);
  return true;
}

bool IPC::write_msg(unsigned int msg_id, int msg_tag, const std::vector<unsigned char>& data) {
  return write_msg(msg_id, msg_tag, data.empty() ? nullptr : data.data(), payload_size_of(data));
}

bool IPC::write_msg(unsigned int msg_id, int msg_tag, const std::vector<char>& data) {
  return write_msg(msg_id, msg_tag, data.empty() ? nullptr : data.data(), payload_size_of(data));
}

bool IPC::write_msg(unsigned int msg_id, int msg_tag, const std::string& data) {
  return write_msg(msg_id, msg_tag, data.data(), payload_size_of(data));
}

bool IPC::read_msg(unsigned int msg_id, int& msg_tag, IpcBuffer& buffer, int size_limit,
                   int timeout_msec) {
  const LogChannelScope scope(kLogIpc);
  ZEDIPC_IPC_LOG(kLogDebug, "IPC::read_msg(timeout_msec==%d)\n", timeout_msec);
  Header header;
  if (!find_header(*d, msg_id, header, timeout_msec) || !accept_size(header, size_limit)) {
    buffer.clear();
    return false;
  }
  const int size = payload_size(header);
  msg_tag = static_cast<std::int32_t>(get_word(&header[8]));
  const int read_bytes = read_payload(*d, buffer, size, std::max(timeout_msec, kPieceTimeout));
  if (size == 0) {
    ZEDIPC_IPC_LOG(kLogDebug, "IPC::read_msg() -> size==0\n");
    return true;
  }
  if (read_bytes != size) {
    ZEDIPC_IPC_LOG(kLogError, "IPC::read_msg() -> size!=read_bytes (%d!=%d)\n", size, read_bytes);
    return false;
  }
  ZEDIPC_IPC_LOG(kLogDebug, "IPC::read_msg() -> read %d bytes successfully\n", size);
  return true;
}

bool IPC::read_msg(unsigned int msg_id, int& msg_tag, std::vector<unsigned char>& buffer,
                   int size_limit, int timeout_msec) {
  BufferAdaptor<std::vector<unsigned char>> adaptor(buffer);
  return read_msg(msg_id, msg_tag, adaptor, size_limit, timeout_msec);
}

bool IPC::read_msg(unsigned int msg_id, int& msg_tag, std::vector<char>& buffer, int size_limit,
                   int timeout_msec) {
  BufferAdaptor<std::vector<char>> adaptor(buffer);
  return read_msg(msg_id, msg_tag, adaptor, size_limit, timeout_msec);
}

bool IPC::read_msg(unsigned int msg_id, int& msg_tag, std::string& buffer, int size_limit,
                   int timeout_msec) {
  BufferAdaptor<std::string> adaptor(buffer);
  return read_msg(msg_id, msg_tag, adaptor, size_limit, timeout_msec);
}

}  // namespace zedipc
