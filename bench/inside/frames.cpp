// SPDX-License-Identifier: MIT
// One frame through a socket pair: written and read by the same thread. The floor makes
// the system calls that the library makes, and nothing else.
#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>
#include <zedipc/tcp.h>

#include <cstdint>
#include <cstring>

#include "inside.h"

namespace {

constexpr unsigned int kId = 0x62656E63;
constexpr int kLimit = 1 << 20;

struct Descriptors {
  int writer;
  int reader;
};

Descriptors make_pair() {
  int ends[2] = {-1, -1};
  require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
  return {ends[0], ends[1]};
}

class Channels {
 public:
  explicit Channels(const Descriptors& pair) {
    writer_.setFD(pair.writer);
    reader_.setFD(pair.reader);
  }
  void write(const std::string& payload) { writer_.write_msg(kId, 0, payload); }
  void read(std::string& payload) {
    int tag = 0;
    reader_.read_msg(kId, tag, payload, kLimit, -1);
  }

 private:
  zedipc::TCP writer_;
  zedipc::TCP reader_;
};

class Sockets {
 public:
  explicit Sockets(const Descriptors& pair) : pair_(pair) {}
  ~Sockets() {
    close(pair_.writer);
    close(pair_.reader);
  }
  Sockets(const Sockets&) = delete;
  Sockets& operator=(const Sockets&) = delete;

  void write(const std::string& payload) {
    const auto size = static_cast<std::uint32_t>(payload.size());
    const Header header{{htonl(kId), htonl(size + 4), 0}};
    send(pair_.writer, &header, sizeof header, MSG_NOSIGNAL);
    send(pair_.writer, payload.data(), payload.size(), MSG_NOSIGNAL);
  }
  void read(std::string& payload) {
    Header header{};
    receive(&header, sizeof header);
    payload.resize(ntohl(header.words[1]) - 4);
    receive(payload.data(), payload.size());
  }

 private:
  struct Header {
    std::uint32_t words[3];
  };

  void receive(void* data, std::size_t size) {
    auto* next = static_cast<char*>(data);
    while (size > 0) {
      pollfd waiting{pair_.reader, POLLIN, 0};
      poll(&waiting, 1, -1);
      const ssize_t received = recv(pair_.reader, next, size, 0);
      require(received > 0, "recv");
      next += received;
      size -= static_cast<std::size_t>(received);
    }
  }

  const Descriptors pair_;
};

template <typename Ends>
void frame(benchmark::State& state, std::size_t size) {
  Ends ends(make_pair());
  const std::string sent(size, 'p');
  std::string received;
  const auto step = [&] {
    ends.write(sent);
    ends.read(received);
  };
  step();
  require(received == sent, "the payload of a frame");
  measure(state, step);
}

}  // namespace

void register_benchmarks() {
  for (const std::size_t size : {64, 1024, 65536}) {
    const std::string work = "frame/" + std::to_string(size);
    add_benchmark(work, "zedipc", [=](benchmark::State& state) { frame<Channels>(state, size); });
    add_benchmark(work, "floor", [=](benchmark::State& state) { frame<Sockets>(state, size); });
  }
}
