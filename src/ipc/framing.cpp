// SPDX-License-Identifier: MIT
#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>

#include "ipc/ipc_private.h"

namespace zedipc {

namespace {

// A frame begins with three 32-bit words, most significant byte first: the id,
// the number of bytes behind this second word, and the tag.
constexpr int kHeaderSize = 12;
constexpr int kTagSize = 4;

// Once a frame has begun its peer is in the middle of sending, and is given at
// least this long for each further piece, but never for ever.
constexpr int kPieceTimeout = 10000;

using Header = std::array<unsigned char, kHeaderSize>;

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
  return static_cast<std::int32_t>(get_word(&header[4]) - kTagSize);
}

// A standard container as a receive buffer.
template <typename Container>
class BufferAdaptor : public IPC::IpcBuffer {
 public:
  explicit BufferAdaptor(Container& container) : container_(container) {}
  void clear() override { container_.clear(); }
  void resize(int size) override { container_.resize(static_cast<std::size_t>(size), 0); }
  void* data() override { return container_.empty() ? nullptr : &container_[0]; }

 private:
  Container& container_;
};

}  // namespace

bool IPC::write_msg(unsigned int msg_id, int msg_tag, const void* data, int size) {
  const LogChannelScope scope(kLogIpc);
  if (size < 0 || (size > 0 && data == nullptr)) return false;
  const Header header = make_header(msg_id, msg_tag, size);
  if (!write(header.data(), kHeaderSize)) {
    ZEDIPC_LOG(kLogError, "IPC::write_msg() -> write header (12 bytes)\n");
    return false;
  }
  if (!write(data, size)) {
    ZEDIPC_LOG(kLogError, "IPC::write_msg() -> write data (%d bytes)\n", size);
    return false;
  }
  ZEDIPC_LOG(kLogDebug, "IPC::write_msg() -> wrote %d bytes successfully (payload: %d bytes).\n",
             size + kHeaderSize, size);
  return true;
}

bool IPC::write_msg(unsigned int msg_id, int msg_tag, const std::vector<unsigned char>& data) {
  return write_msg(msg_id, msg_tag, data.empty() ? nullptr : data.data(),
                   static_cast<int>(data.size()));
}

bool IPC::write_msg(unsigned int msg_id, int msg_tag, const std::vector<char>& data) {
  return write_msg(msg_id, msg_tag, data.empty() ? nullptr : data.data(),
                   static_cast<int>(data.size()));
}

bool IPC::write_msg(unsigned int msg_id, int msg_tag, const std::string& data) {
  return write_msg(msg_id, msg_tag, data.data(), static_cast<int>(data.size()));
}

bool IPC::read_msg(unsigned int msg_id, int& msg_tag, IpcBuffer& buffer, int size_limit,
                   int timeout_msec) {
  const LogChannelScope scope(kLogIpc);
  ZEDIPC_LOG(kLogDebug, "IPC::read_msg(timeout_msec==%d)\n", timeout_msec);
  Header header;
  int have = 0;
  int timeout = timeout_msec;
  for (;;) {
    const int missing = kHeaderSize - have;
    if (d->read(&header[static_cast<std::size_t>(have)], missing, timeout, kPieceTimeout, false) !=
        missing) {
      buffer.clear();
      return false;
    }
    timeout = std::max(timeout, kPieceTimeout);
    if (get_word(header.data()) == msg_id) break;
    // No frame begins here: look again one byte further on.
    std::memmove(header.data(), &header[1], kHeaderSize - 1);
    have = kHeaderSize - 1;
  }

  const int size = payload_size(header);
  if (size < 0) {
    ZEDIPC_LOG(kLogError, "IPC::read_msg() -> size<0 (%d<0)\n", size);
    buffer.clear();
    return false;
  }
  if (size > size_limit) {
    ZEDIPC_LOG(kLogError, "IPC::read_msg() -> size>size_limit (%d>%d)\n", size, size_limit);
    buffer.clear();
    return false;
  }
  msg_tag = static_cast<std::int32_t>(get_word(&header[8]));
  buffer.resize(size);
  if (size == 0) {
    ZEDIPC_LOG(kLogDebug, "IPC::read_msg() -> size==0\n");
    return true;
  }
  const int read_bytes = d->read(buffer.data(), size, timeout, timeout, true);
  if (read_bytes != size) {
    ZEDIPC_LOG(kLogError, "IPC::read_msg() -> size!=read_bytes (%d!=%d)\n", size, read_bytes);
    return false;
  }
  ZEDIPC_LOG(kLogDebug, "IPC::read_msg() -> read %d bytes successfully\n", size);
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
