// SPDX-License-Identifier: MIT
// A process may end at any time, whatever its channels are doing, those included that
// are static objects of the application.
#include <functional>

#include "stress/exits.h"
#include "stress/links.h"
#include "stress/stress.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr int kExits = 250;

// Made before main, and so destroyed after everything that a test has made.
TCP early_channel;

void called(void* data, IPC* ipc) {
  char bytes[16];
  EXPECT_TRUE(ipc->read(bytes, sizeof bytes, 0) > 0 || ipc->eof() || ipc->error());
  static_cast<Ending*>(data)->called();
}

// Connects a channel, and has it called from now on.
template <typename Channel>
void engage(Channel& channel, const std::function<bool(Channel&)>& connect, IPC& listener,
            Ending& ending) {
  EXPECT_TRUE(connect(channel));
  IPC& peer = *listener.accept(10000);  // which is used to the end of the process
  EXPECT_TRUE(channel.set_callback(called, &ending));
  run_for_ever([&peer] {
    if (!peer.write("some bytes", 10)) pause();  // the channel has been destroyed
    usleep(100);  // the callbacks of all channels share a thread, which is to have rests
  });
}

// Channels of every kind of life, with traffic on all of them.
[[noreturn]] void run_channels(const std::string& name, ExitFrom from, int after) {
  auto& ending = *new Ending(from, after);
  auto& pipes = *new Pipe;
  EXPECT_TRUE(pipes.listen(name.c_str()));
  auto& ports = *new Listening;
  const std::function<bool(TCP&)> by_tcp = [&](TCP& channel) {
    return channel.connect("127.0.0.1", port_in(ports.channel.local_addr()));
  };
  const std::function<bool(Pipe&)> by_pipe = [&](Pipe& channel) {
    return channel.connect(name.c_str());
  };

  static Pipe late_channel;
  static TCP never_connected;
  EXPECT_TRUE(never_connected.set_callback(called, &ending));
  engage(early_channel, by_tcp, ports.channel, ending);
  engage(late_channel, by_pipe, pipes, ending);
  engage(*new TCP, by_tcp, ports.channel, ending);

  // A thread that is blocked, and one that comes and goes.
  auto& silent = *new TCP;
  EXPECT_TRUE(by_tcp(silent));
  run_for_ever([&] { silent.poll_in(-1); });
  run_for_ever([&] {
    TCP passing;
    by_tcp(passing);
    passing.set_callback(called, &ending);
  });
  run_for_ever([&] { delete ports.channel.accept(-1); });
  ending.wait();
}

void expect_clean_exits_of_channels(ExitFrom from) {
  const HangGuard guard;
  const ScratchDir dir;
  expect_clean_exits(amount(kExits), 8, [&](int after) {
    run_channels(dir.file("pipe" + std::to_string(getpid())), from, after);
  });
}

}  // namespace

TEST(ExitWithChannels, IsCleanInMain) { expect_clean_exits_of_channels(ExitFrom::kMain); }

TEST(ExitWithChannels, IsCleanInAChannelsCallback) {
  expect_clean_exits_of_channels(ExitFrom::kCallback);
}
