// SPDX-License-Identifier: MIT
// The listening end of a channel between processes of one machine: sends each frame back.
//
//   echo_server PATH
#include <zedipc/pipe.h>

#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include "echo_protocol.h"
#include "program.h"

namespace {

// One peer, to its end.
void serve(const std::unique_ptr<zedipc::IPC>& peer) {
  std::string text;
  int tag = 0;
  for (;;) {
    if (peer->read_msg(example::kEchoFrame, tag, text, example::kEchoLimit, -1)) {
      std::printf("echo_server: %zu bytes from process %s\n", text.size(), peer->remote_addr());
      if (!peer->write_msg(example::kEchoFrame, tag, text)) return;
    } else if (peer->eof() || peer->error()) {
      return;
    }  // else a frame above the limit, which the next call skips
  }
}

void accept_peers(zedipc::Pipe& listener) {
  while (listener.is_server()) {
    std::unique_ptr<zedipc::IPC> peer(listener.accept(-1));
    if (peer != nullptr) std::thread(serve, std::move(peer)).detach();
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: echo_server PATH\n");
    return example::kUsage;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const example::EndSignal end;

  zedipc::Pipe listener;
  if (!listener.listen(argv[1])) {
    std::fputs(example::cannot_listen("echo_server", argv[1]).c_str(), stderr);
    return example::kFailed;
  }
  std::printf("echo_server: listening on %s\n", argv[1]);

  std::thread acceptor(accept_peers, std::ref(listener));
  end.wait();
  listener.close();  // removes the socket file and ends the waiting accept
  acceptor.join();
  std::printf("echo_server: ended\n");
  return example::kDone;
}
