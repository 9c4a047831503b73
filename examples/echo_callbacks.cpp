// SPDX-License-Identifier: MIT
// The same service as echo_server, with callbacks in place of threads: however many
// peers there are, this program has two threads, its own and the library's dispatcher.
//
//   echo_callbacks PATH
//
// What that costs: peers are served one at a time. One that stops in the middle of a
// frame, or does not read its answers, holds up all others (a frame for up to 10
// seconds, an answer without limit). Where peers cannot be trusted, take echo_server.
#include <sys/select.h>
#include <zedipc/pipe.h>

#include <cstdio>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "echo_protocol.h"
#include "program.h"

namespace {

class Service {
 public:
  // Has the peer served from now on.
  void add(std::unique_ptr<zedipc::IPC> peer) {
    zedipc::IPC* const channel = peer.release();
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      peers_.insert(channel);
    }
    // Not under the mutex: this waits for the dispatcher, and the dispatcher for the
    // mutex if a peer is just leaving.
    if (!channel->set_callback(on_input, this)) {
      std::fprintf(stderr, "echo_callbacks: the library cannot start its thread\n");
      remove(channel);
    }
  }

  // Waits for the callback that is running, as every deletion of a channel does.
  void remove_all() {
    std::set<zedipc::IPC*> peers;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      peers.swap(peers_);
    }
    for (zedipc::IPC* const peer : peers) delete peer;
  }

 private:
  // Called by the dispatcher: one frame has come, or the peer has gone.
  static void on_input(void* data, zedipc::IPC* peer) {
    if (echo(*peer)) {
      // An empty frame does not count as read, nor does a refused one. Reading nothing
      // does, and the next frame is announced again.
      char nothing;
      peer->read(&nothing, 0, 0);
    } else {
      static_cast<Service*>(data)->remove(peer);
    }
  }

  // Sends one frame back; false when there are no more.
  static bool echo(zedipc::IPC& peer) {
    std::string text;
    int tag = 0;
    if (!peer.read_msg(example::kEchoFrame, tag, text, example::kEchoLimit, 0)) {
      return !peer.eof() && !peer.error();  // else a frame above the limit
    }
    std::printf("echo_callbacks: %zu bytes from process %s\n", text.size(), peer.remote_addr());
    return peer.write_msg(example::kEchoFrame, tag, text);
  }

  // A callback may delete its own channel.
  void remove(zedipc::IPC* peer) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      if (peers_.erase(peer) == 0) return;  // remove_all deletes it
    }
    delete peer;
  }

  std::mutex mutex_;
  std::set<zedipc::IPC*> peers_;
};

// Lets peers in until the program is asked to end. A listener's own callback would never
// be called, so this thread waits for peers.
void accept_peers(zedipc::Pipe& listener, const example::EndSignal& end, Service& service) {
  while (end.comes_after_input_on(listener.getFD())) {
    std::unique_ptr<zedipc::IPC> peer(listener.accept(0));
    if (peer == nullptr) continue;
    // select(2), by which the dispatcher watches channels, knows no higher ones.
    if (peer->getFD() >= FD_SETSIZE) {
      std::fprintf(stderr, "echo_callbacks: too many peers, one was sent away\n");
      continue;
    }
    service.add(std::move(peer));
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: echo_callbacks PATH\n");
    return example::kUsage;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const example::EndSignal end;

  zedipc::Pipe listener;
  if (!listener.listen(argv[1])) {
    std::fputs(example::cannot_listen("echo_callbacks", argv[1]).c_str(), stderr);
    return example::kFailed;
  }
  std::printf("echo_callbacks: listening on %s\n", argv[1]);

  Service service;
  accept_peers(listener, end, service);
  service.remove_all();
  std::printf("echo_callbacks: ended\n");
  return example::kDone;
}
