// SPDX-License-Identifier: MIT
// The reader of frames, on a stream that comes in pieces, and the writer with what was
// read.
//
// An input is a byte of options, two bytes of size limit, the number of pieces, a byte
// for each piece, and the stream. A piece is that many bytes long; 0 is a peer that lets
// its reader wait in vain, and 255 a signal during the wait. What is left of the stream
// comes as one last piece.

// The checked form of poll would stand in the way of our own.
#undef _FORTIFY_SOURCE

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zedipc/tcp.h>

#include <algorithm>
#include <cerrno>
#include <deque>
#include <string>
#include <utility>
#include <vector>

#include "fuzz/frame_stream.h"
#include "fuzz/harness.h"
#include "support/raw_peer.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr unsigned kIds[] = {kNotifyFrame, 0, 0x41414141, 0xFFFEFFFE};
constexpr unsigned char kSilence = 0;
constexpr unsigned char kSignal = 255;

class Peer {
 public:
  Peer(RawPeer end, std::deque<unsigned char> pieces, std::string stream)
      : end_(std::move(end)), pieces_(std::move(pieces)), stream_(std::move(stream)) {}

  // Where in the stream the silences are.
  [[nodiscard]] std::deque<std::size_t> silences() const {
    std::deque<std::size_t> result;
    std::size_t at = 0;
    for (const unsigned char piece : pieces_) {
      if (piece == kSilence) result.push_back(at);
      if (piece != kSignal) at = std::min(at + piece, stream_.size());
    }
    return result;
  }

  // What comes next for a reader that has taken everything, as poll gives it: 0 for a
  // wait in vain, -1 for an interrupted one, else 1.
  int play() {
    if (pieces_.empty()) {
      if (at_ == stream_.size()) shutdown(end_.fd(), SHUT_WR);
      send(stream_.size());
      return 1;
    }
    const unsigned char piece = pieces_.front();
    pieces_.pop_front();
    if (piece == kSilence) return 0;
    if (piece == kSignal) return -1;
    if (at_ == stream_.size()) return play();
    send(piece);
    return 1;
  }

  [[nodiscard]] const RawPeer& end() const { return end_; }

 private:
  void send(std::size_t count) {
    const std::string piece = stream_.substr(at_, count);
    if (piece.empty()) return;
    end_.send(piece);
    at_ += piece.size();
  }

  RawPeer end_;
  std::deque<unsigned char> pieces_;
  std::string stream_;
  std::size_t at_ = 0;
};

// The peer whose reader waits on `reader_fd`.
Peer* peer = nullptr;
int reader_fd = -1;

bool is_drained(int fd) {
  int unread = 0;
  return ioctl(fd, FIONREAD, &unread) == 0 && unread == 0;
}

class OwnBuffer : public IPC::IpcBuffer {
 public:
  void clear() override { bytes_.clear(); }
  void resize(int size) override { bytes_.resize(static_cast<std::size_t>(size)); }
  void* data() override { return bytes_.empty() ? nullptr : bytes_.data(); }
  [[nodiscard]] std::string text() const { return {bytes_.begin(), bytes_.end()}; }

 private:
  std::vector<char> bytes_;
};

template <typename Container>
bool read_into(IPC& channel, unsigned id, int& tag, int limit, std::string& payload) {
  Container container;
  const bool whole = channel.read_msg(id, tag, container, limit, 0);
  payload.assign(container.begin(), container.end());
  return whole;
}

bool read_frame(unsigned form, IPC& channel, unsigned id, int& tag, int limit,
                std::string& payload) {
  switch (form) {
    case 0:
      return read_into<std::string>(channel, id, tag, limit, payload);
    case 1:
      return read_into<std::vector<char>>(channel, id, tag, limit, payload);
    case 2:
      return read_into<std::vector<unsigned char>>(channel, id, tag, limit, payload);
    default:
      OwnBuffer buffer;
      const bool whole = channel.read_msg(id, tag, buffer, limit, 0);
      payload = buffer.text();
      return whole;
  }
}

void expect_written(IPC& channel, unsigned id, int tag, const std::string& payload) {
  require(channel.write_msg(id, tag, payload), "a frame is written");
  const std::string expected = frame(id, static_cast<unsigned>(tag), payload);
  require(peer->end().receive(expected.size()) == expected, "a frame is written as it was read");
}

}  // namespace

// Has the peer play on whenever its reader is about to wait.
extern "C" int poll(pollfd* fds, nfds_t count, int timeout) {
  const timespec limit{timeout / 1000, timeout % 1000 * 1000000L};
  const timespec* const wait = timeout < 0 ? nullptr : &limit;
  if (count != 1 || fds->fd != reader_fd || peer == nullptr)
    return ppoll(fds, count, wait, nullptr);
  const int result = is_drained(reader_fd) ? peer->play() : 1;
  if (result == 1) return ppoll(fds, count, wait, nullptr);
  fds->revents = 0;
  errno = EINTR;
  return result;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Input input(data, size);
  const unsigned options = input.byte();
  const unsigned form = options % 4;
  const unsigned id = kIds[options / 4 % 4];
  const unsigned high = input.byte();
  const unsigned limit = high * 256 + input.byte();
  std::deque<unsigned char> pieces(input.byte());
  for (unsigned char& piece : pieces) piece = input.byte();
  const std::string stream = input.rest();

  int ends[2];
  require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "there is a socket pair");
  TCP channel;
  channel.setFD(ends[0]);
  Peer playing(RawPeer(ends[1]), std::move(pieces), stream);
  FrameStream model(stream, playing.silences());
  peer = &playing;
  reader_fd = ends[0];
  for (bool ended = false; !ended;) {
    constexpr int kOldTag = 123456;
    int tag = kOldTag;
    std::string payload;
    const bool whole = read_frame(form, channel, id, tag, static_cast<int>(limit), payload);
    const FrameStream::Result expected = model.next(id, limit);
    require(whole == expected.whole, "the reader finds the frames that are there");
    require(tag == (expected.has_tag ? static_cast<int>(expected.tag) : kOldTag),
            "the tag is the frame's");
    require(payload == expected.payload, "the payload is the frame's");
    require(channel.eof() == expected.ended, "the end of the stream shows as such");
    require(!channel.error(), "nothing is an error of the channel");
    if (whole) expect_written(channel, id, tag, payload);
    ended = expected.ended;
  }
  peer = nullptr;
  return 0;
}
