// SPDX-License-Identifier: MIT
// The lines that the dispatcher and set_callback log.
#include <gtest/gtest.h>
#include <zedipc/tcp.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "ipc/callbacks.h"
#include "ipc/wake_up_calls.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

enum class Of { kDispatcher, kOthers };

// The lines of the log, with all addresses in them.
Lines lines(const std::string& log, Of whom) {
  Lines found;
  for (const LogLine& line : parse_log(log)) {
    const bool by_dispatcher = line.message.rfind("cb_thread(): ", 0) == 0;
    if (by_dispatcher == (whom == Of::kDispatcher)) found.push_back(line.message);
    EXPECT_EQ(line.channel + ":" + line.level, "IPC:debug") << line.message;
    EXPECT_EQ(line.file, "ipc.cpp") << line.message;
  }
  return found;
}

struct Output {
  Lines logged;
  Lines printed;
};

// What `body`, in a process of its own, logs and what it prints.
Output output_of(Of whom, const std::function<void()>& body) {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "255"}}, body);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  Output output{lines(result.err, whom), {}};
  std::istringstream out(result.out);
  for (std::string line; std::getline(out, line);) output.printed.push_back(line);
  EXPECT_FALSE(output.printed.empty());
  return output;
}

// In a process of its own: whether the log has this line.
bool logged_so_far(const std::string& message) {
  std::ifstream in("/proc/self/fd/2");
  const std::string log{std::istreambuf_iterator<char>(in), {}};
  return log.find(message) != std::string::npos;
}

// Expects the log to be what `body` prints.
void expect_log(Of whom, const std::function<void()>& body) {
  const Output output = output_of(whom, body);
  EXPECT_EQ(output.logged, output.printed);
}

// Expects what `body` prints to stand in the dispatcher's log, line by line.
void expect_in_log(const std::function<void()>& body) {
  const auto [logged, printed] = output_of(Of::kDispatcher, body);
  const auto found = std::search(logged.begin(), logged.end(), printed.begin(), printed.end());
  EXPECT_NE(found, logged.end()) << ::testing::PrintToString(printed) << "\nis not in\n"
                                 << ::testing::PrintToString(logged);
}

// A channel with a callback, and its addresses as the log shows them.
struct Logged {
  Logged() { EXPECT_TRUE(callback.set_on(adopted.channel)); }

  Callback callback;
  Adopted adopted;
  void* const function = Callback::function();
  void* const data = &callback;
  void* const ipc = &adopted.channel;
  void* const d = &inner_state(adopted.channel);
};

void print_select(int highest, int result) {
  std::printf("cb_thread(): select() called (maxfd=%d)!\n", highest);
  std::printf("cb_thread(): select() returned (ret=%d)!\n", result);
}

void print_rebuild(const Logged& logged, int state) {
  std::printf("cb_thread(): try to added fd=%d for callback %p (ipc=%p, d=%p, cb_state=%d)!\n",
              logged.adopted.channel.getFD(), logged.function, logged.ipc, logged.d, state);
  // The line shows the data as the channel, and the channel as its state.
  if (state == (CB_REGISTERED | CB_ARMED)) {
    std::printf("cb_thread(): added fd=%d for callback %p (ipc=%p, d=%p)!\n",
                logged.adopted.channel.getFD(), logged.function, logged.data, logged.ipc);
  }
}

void print_call(const Logged& logged) {
  std::printf("cb_thread(): call callback %p with data %p (ipc=%p, d=%p)!\n", logged.function,
              logged.data, logged.ipc, logged.d);
}

void print_last_call(const Logged& logged, const char* reason) {
  std::printf("cb_thread(): set lock flag for callback %p (ipc=%p, d=%p), reason: %s!\n",
              logged.function, logged.ipc, logged.d, reason);
  print_call(logged);
  print_rebuild(logged, CB_REGISTERED | CB_LOCKED);
}

}  // namespace

TEST(DispatcherLog, OfALifeWithOneRegistration) {
  expect_log(Of::kDispatcher, [] {
    Callback callback;
    TCP channel;
    ASSERT_TRUE(callback.set_on(channel));
    const int fd = wake_up_end();
    ASSERT_TRUE(remove_callback(channel));
    ASSERT_TRUE(eventually([] { return logged_so_far("cb_thread(): terminate!"); }));
    print_select(fd, 1);
    std::printf("cb_thread(): got notification on fd=%d\n", fd);
    std::printf("cb_thread(): try to added fd=-1 for callback %p (ipc=%p, d=%p, cb_state=7)!\n",
                Callback::function(), static_cast<void*>(&channel),
                static_cast<void*>(&inner_state(channel)));
    print_select(fd, 1);
    std::printf("cb_thread(): terminate!\n");
  });
}

TEST(DispatcherLog, OfAPassWithoutInput) {
  expect_in_log([] {
    const Logged logged;
    settle();
    const int fd = wake_up_end();
    print_select(fd, 1);
    std::printf("cb_thread(): got notification on fd=%d\n", fd);
    std::printf("cb_thread(): !FD_ISSET() on fd=%d (ipc=%p, d=%p)!\n",
                logged.adopted.channel.getFD(), logged.ipc, logged.d);
    print_rebuild(logged, 5);
  });
}

TEST(DispatcherLog, OfAChannelWithAHigherDescriptorThanThePipe) {
  expect_in_log([] {
    Callback callback;
    TCP first;
    ASSERT_TRUE(callback.set_on(first));
    const Logged logged;
    settle();
    const int fd = logged.adopted.channel.getFD();
    ASSERT_GT(fd, wake_up_end());
    print_select(fd, 1);
  });
}

TEST(DispatcherLog, OfACall) {
  expect_in_log([] {
    Logged logged;
    logged.adopted.peer.send("x");
    ASSERT_TRUE(logged.callback.called());
    settle();
    print_select(wake_up_end(), 1);
    print_call(logged);
    print_rebuild(logged, 1);
  });
}

TEST(DispatcherLog, OfTheLastCallAtTheEnd) {
  expect_in_log([] {
    Logged logged;
    logged.adopted.peer.close();
    ASSERT_TRUE(logged.callback.called());
    settle();
    print_select(wake_up_end(), 1);
    print_last_call(logged, "eof");
  });
}

TEST(DispatcherLog, OfTheLastCallAfterAFailure) {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "255"}}, [] {
    Logged logged;
    EXPECT_FALSE(logged.adopted.channel.write("x", -1));
    logged.adopted.peer.close();
    ASSERT_TRUE(logged.callback.called());
    settle();
  });
  EXPECT_EQ(result.status, 0) << result.out;
  const Lines logged = log_messages(result.err, "debug");
  const std::string line =
      "IPC:debug|cb_thread(): set lock flag for callback PTR (ipc=PTR, d=PTR), reason: error!";
  EXPECT_EQ(std::count(logged.begin(), logged.end(), line), 1);
}

TEST(DispatcherLog, OfAPassAfterTheEnd) {
  expect_in_log([] {
    Logged logged;
    logged.adopted.peer.close();
    ASSERT_TRUE(logged.callback.called());
    settle();
    const int fd = wake_up_end();
    print_select(fd, 1);
    std::printf("cb_thread(): got notification on fd=%d\n", fd);
    std::printf("cb_thread(): callback %p is locked (ipc=%p, d=%p, cb_state=3)!\n", logged.function,
                logged.ipc, logged.d);
    print_rebuild(logged, 3);
  });
}

TEST(DispatcherLog, OfInputThatSomebodyElseTook) {
  expect_in_log([] {
    Logged logged;
    take_under_a_pass(logged.adopted.channel, logged.adopted.peer);
    settle();
    print_select(wake_up_end(), 1);
    std::printf("cb_thread(): !poll_in()->no data (ipc=%p, d=%p)!\n", logged.ipc, logged.d);
    print_rebuild(logged, 5);
  });
}

TEST(DispatcherLog, OfInputOnAChannelThatIsDisabled) {
  expect_in_log([] {
    Logged logged;
    {
      const DispatcherPause pause;
      inner_state(logged.adopted.channel).cb_state &= ~CB_ARMED;
      logged.adopted.peer.send("x");
    }
    settle();
    std::printf("cb_thread(): callback %p temporary disabled (ipc=%p, d=%p, cb_state=1)!\n",
                logged.function, logged.ipc, logged.d);
    print_rebuild(logged, 1);
  });
}

TEST(DispatcherLog, OfASelectThatFails) {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "255"}}, [] {
    RawPeer spare;
    Callback callback([&](IPC& channel) {
      take(channel, 1);  // so that it is watched on
      spare = RawPeer(dup(channel.getFD()));
      EXPECT_EQ(close(channel.getFD()), 0);
    });
    Adopted adopted;
    ASSERT_TRUE(callback.set_on(adopted.channel));
    adopted.peer.send("x");
    ASSERT_TRUE(callback.called());
    settle();
    ASSERT_TRUE(remove_callback(adopted.channel));
    ASSERT_EQ(dup2(spare.fd(), adopted.channel.getFD()), adopted.channel.getFD());
  });
  EXPECT_EQ(result.status, 0) << result.out;
  const Lines logged = lines(result.err, Of::kDispatcher);
  auto at = std::find(logged.begin(), logged.end(), "cb_thread(): select() returned (ret=-1)!");
  ASSERT_NE(at, logged.end());
  EXPECT_EQ((++at)->rfind("cb_thread(): try to added fd=", 0), 0U) << *at;
}

// ---- set_callback

TEST(SetCallbackLog, OfARegistrationAndARemoval) {
  expect_log(Of::kOthers, [] {
    Callback callback;
    {
      TCP channel;
      void* const ipc = &channel;
      void* const d = &inner_state(channel);
      void* const data = &callback;
      ASSERT_TRUE(callback.set_on(channel));
      ASSERT_TRUE(channel.set_callback(nullptr, data));
      std::printf("%p->set_callback() called with %p (data=%p))\n", ipc, Callback::function(),
                  data);
      std::printf("%p->set_callback(): registered callback %p (d=%p))\n", ipc, Callback::function(),
                  d);
      std::printf("notify_cb_thread(): notified callback thread!\n");
      std::printf("%p->set_callback() called with (nil) (data=%p))\n", ipc, data);
      std::printf("%p->set_callback(): unregister callback %p for this object (d=%p)\n", ipc,
                  Callback::function(), d);
      std::printf("notify_cb_thread(): notified callback thread!\n");
      // At the end of the channel.
      std::printf("%p->set_callback() called with (nil) (data=(nil)))\n", ipc);
      std::printf("%p->set_callback(): empty callback map for this object (d=%p), done.\n", ipc, d);
    }
  });
}

TEST(SetCallbackLog, OfARemovalWithoutARegistration) {
  const ChildResult result = run_in_child({{"IPC_LOGMASK", "255"}}, [] {
    static Callback callback;
    static auto& registered = *new TCP;
    static auto& plain = *new TCP;
    ASSERT_TRUE(callback.set_on(registered));
    EXPECT_FALSE(remove_callback(plain));
    std::printf("%p->set_callback(): no callback registered for this object (d=%p), done.\n",
                static_cast<void*>(&plain), static_cast<void*>(&inner_state(plain)));
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(lines(result.err, Of::kOthers).back() + "\n", result.out);
}

TEST(SetCallbackLog, OfAReadThatWakesTheDispatcher) {
  expect_log(Of::kOthers, [] {
    static Callback callback;
    static auto& registered = *new TCP;
    static auto& plain = *new Adopted;
    ASSERT_TRUE(callback.set_on(registered));
    rearm(plain.channel);
    std::printf("%p->set_callback() called with %p (data=%p))\n", static_cast<void*>(&registered),
                Callback::function(), static_cast<void*>(&callback));
    std::printf("%p->set_callback(): registered callback %p (d=%p))\n",
                static_cast<void*>(&registered), Callback::function(),
                static_cast<void*>(&inner_state(registered)));
    std::printf("notify_cb_thread(): notified callback thread!\n");
    std::printf("notify_cb_thread(): notified callback thread!\n");
  });
}

TEST(SetCallbackLog, OfAStartThatFails) {
  expect_log(Of::kOthers, [] {
    Callback callback;
    static auto& channel = *new TCP;
    fail_pipes(1, EMFILE);
    EXPECT_FALSE(callback.set_on(channel));
    std::printf("%p->set_callback() called with %p (data=%p))\n", static_cast<void*>(&channel),
                Callback::function(), static_cast<void*>(&callback));
  });
}
