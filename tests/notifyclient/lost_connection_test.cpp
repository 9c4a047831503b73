// SPDX-License-Identifier: MIT
// Calls that find a connection and lose it before they have sent: only from inside the
// client can that moment be chosen.
#include <gtest/gtest.h>

#include <zedipc/tcp.h>

#include "delivery_script.h"
#include "notifyclient/client_state.h"
#include "notifyclient/connection.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// Runs `call` to where it needs `lock`, and goes on when the connection is gone. The
// reader is not told, so the connection comes back in the end.
int lose_before(std::mutex& lock, const std::function<int()>& call) {
  std::unique_lock<std::mutex> held(lock);
  Task task(call);
  EXPECT_TRUE(task.blocked());
  IPC* const connection = client.server_ipc.exchange(nullptr);
  held.unlock();
  const int result = task.result();
  client.server_ipc = connection;
  return result;
}

// The log of a child that loses its connection in `call` as above.
Lines log_of_loss(std::mutex& lock, int expected, const std::function<int()>& call) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "191"}}, [&] {  // all but info
    Script& script = immortal<Script>();
    EXPECT_EQ(say("first"), 0);
    script.next("notify");
    EXPECT_EQ(lose_before(lock, call), expected);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  return client_log(result.err);
}

// A connection of its own to a peer, which can no more be written to.
class DeadConnection {
 public:
  DeadConnection() {
    EXPECT_TRUE(channel_.connect("127.0.0.1", listener_.port(), -1));
    peer_ = listener_.accept();
    EXPECT_EQ(shutdown(channel_.getFD(), SHUT_WR), 0);
  }

  TCP& channel() { return channel_; }

  // Ends the stream, and lets the channel see that.
  void end() {
    peer_.close();
    EXPECT_TRUE(channel_.poll_in(10000));
  }

 private:
  RawListener listener_{"127.0.0.1", 0};
  TCP channel_;
  RawPeer peer_;
};

}  // namespace

TEST(LostConnection, IsFoundByARegistration) {
  EXPECT_EQ(log_of_loss(client.table_lock, -1,
                        [] { return ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"); }),
            (Lines{"NFYCL:error|register_client(): failed (NO IPC)",
                   "NFYCL:error|ipcRegisterNotificationCB(): server registration failed (to='t', "
                   "notification='n', prio=5)"}));
}

TEST(LostConnection, IsFoundByAnUnregistration) {
  EXPECT_EQ(log_of_loss(client.table_lock, -1,
                        [] { return ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"); }),
            (Lines{"NFYCL:error|unregister_client(): failed (NO IPC)",
                   "NFYCL:error|ipcUnregisterNotificationCB(): server unregistration failed "
                   "(to='t', notification='n')"}));
}

TEST(LostConnection, IsFoundByAnObserver) {
  EXPECT_EQ(log_of_loss(client.table_lock, -1,
                        [] { return ipcRegisterObserver(ignore_observation, nullptr); }),
            Lines{"NFYCL:error|ipcRegisterObserver(): write_msg() on ipc=(nil) failed (NO IPC), "
                  "msg={\"type\":\"register_observer\"}"});
}

TEST(LostConnection, IsFoundByANotification) {
  EXPECT_EQ(log_of_loss(client.send_lock, -1, [] { return say("n"); }),
            Lines{"NFYCL:error|ipcNotify(): write_msg() on ipc=(nil) failed (NO IPC), msg=" +
                  notification("*", "n")});
}

TEST(LostConnection, IsReportedToUnicastErrorCallbacks) {
  Script script;
  Recorder& calls = immortal<Recorder>();
  ASSERT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
  ASSERT_EQ(say("first"), 0);
  EXPECT_EQ(lose_before(client.send_lock, [] { return ipcNotify("x", "n", JSObject(), 0, "f"); }),
            -1);
  EXPECT_EQ(calls.calls(1), Lines{call_of("x", "n")});
}

TEST(LostConnection, LeavesNoRegistration) {
  Script script;
  ASSERT_EQ(say("first"), 0);
  EXPECT_EQ(lose_before(client.table_lock,
                        [] { return ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"); }),
            -1);
  EXPECT_TRUE(lazy_table(client.notification_table).empty());
}

TEST(LostConnection, LeavesNoObserver) {
  Script script;
  ASSERT_EQ(say("first"), 0);
  EXPECT_EQ(lose_before(client.table_lock,
                        [] { return ipcRegisterObserver(ignore_observation, nullptr); }),
            -1);
  EXPECT_TRUE(lazy_table(client.observer_table).empty());
}

TEST(LostConnection, IsNotUsedByASenderThatWaitedForItsEnd) {
  Script script;
  script.receive_as("t", 1);
  lose(script.server());
  EXPECT_EQ(client.server_ipc.load(), nullptr);
  const SendResult result = send_to_server(nullptr, notification("t", "n"));
  EXPECT_FALSE(result.sent);
  EXPECT_STREQ(result.reason, "NO IPC");
  EXPECT_EQ(result.ipc, nullptr);
}

TEST(LostConnection, WakesWhoeverWaitsForIt) {
  Script script;
  script.receive_as("t", 1);
  Task task([] {
    std::unique_lock<std::mutex> held(client.send_lock);
    while (client.server_ipc != nullptr) {
      pthread_cond_wait(&client.reconnect_cond, client.send_lock.native_handle());
    }
    return 1;
  });
  ASSERT_TRUE(task.blocked());
  lose(script.server());
  EXPECT_EQ(task.result(), 1);
}

TEST(LostConnection, TakesNoWriteWithIt) {
  Script script;
  script.receive_as("t", 1);
  std::unique_lock<std::mutex> held(client.send_lock);
  IPC* const connection = client.server_ipc;
  shutdown(script.server().fd(), SHUT_WR);
  EXPECT_TRUE(eventually([&] { return connection->eof(); }));
  // The reader knows; the teardown waits for whoever is writing.
  EXPECT_EQ(client.server_ipc.load(), connection);
  EXPECT_TRUE(connection->write_msg(kNotifyFrame, 0, notification("t", "last")));
  held.unlock();
  EXPECT_EQ(script.next("notify"), notification("t", "last"));
  EXPECT_TRUE(script.server().at_end());
  EXPECT_EQ(client.server_ipc.load(), nullptr);
}

// A registration that was sent on a connection which then was lost: when it comes to the
// table, there is another connection already, which has not been told of it.
TEST(LostConnection, HasAnObserverToldToTheOneThatStandsInstead) {
  Script script;
  EXPECT_EQ(say("first"), 0);
  script.next("notify");
  std::unique_lock<std::mutex> held(client.change_lock);
  Task entering([] { return ipcRegisterObserver(ignore_observation, nullptr); });
  EXPECT_EQ(script.next("register_observer"), kObserverOn);
  ASSERT_TRUE(entering.blocked());
  client.connection_epoch = ++client.epoch;
  held.unlock();
  EXPECT_EQ(entering.result(), 0);
  EXPECT_EQ(script.next("register_observer"), kObserverOn);
  expect_nothing_sent(script.server());
}

TEST(SendResult, IsSuccessWithoutAReason) {
  Script script;
  script.receive_as("t", 1);
  const SendResult result = send_to_server(nullptr, notification("t", "n"));
  EXPECT_TRUE(result.sent);
  EXPECT_STREQ(result.reason, "");
  EXPECT_EQ(result.ipc, client.server_ipc.load());
  EXPECT_EQ(result.epoch, client.connection_epoch.load());
}

TEST(SendResult, IsAnErrorOfTheWrite) {
  DeadConnection connection;
  const SendResult result = send_to_server(&connection.channel(), "text");
  EXPECT_FALSE(result.sent);
  EXPECT_STREQ(result.reason, "ERROR");
  EXPECT_EQ(result.ipc, &connection.channel());
}

TEST(SendResult, IsTheEndOfTheStreamIfThatIsKnown) {
  DeadConnection connection;
  connection.end();
  const SendResult result = send_to_server(&connection.channel(), "text");
  EXPECT_FALSE(result.sent);
  EXPECT_STREQ(result.reason, "EOF");
}

TEST(SendResult, IsLoggedByWhoeverTellsOfAGroup) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "255"}}, [] {
    const LogChannelScope scope(kLogNotifyClient);
    DeadConnection connection;
    connection.end();
    EXPECT_FALSE(register_client(&connection.channel(), "t", "n", 5).sent);
    EXPECT_FALSE(unregister_client(&connection.channel(), "t", "n").sent);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err),
            (Lines{"NFYCL:error|register_client(): write_msg() on ipc=PTR failed (EOF), msg=" +
                       registration("t", "n", 5),
                   "NFYCL:error|unregister_client(): write_msg() on ipc=PTR failed (EOF), msg=" +
                       unregistration("t", "n")}));
}

TEST(SendResult, IsNotLoggedByItself) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "255"}}, [] {
    const LogChannelScope scope(kLogNotifyClient);
    DeadConnection connection;
    EXPECT_FALSE(send_to_server(&connection.channel(), "text").sent);
    EXPECT_FALSE(send_to_server(nullptr, "text").sent);
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err), Lines{});
}

TEST(NoServer, IsNamedByAnEmptyTextButCountsAsRemote) {
  setenv("NOTIFY_SERVER", "", 1);
  EXPECT_EQ(say("n"), -1);
  EXPECT_TRUE(client.remote_client);
}

TEST(NoServer, LeavesNoTraceButWhetherItIsRemote) {
  EXPECT_EQ(say("n"), -1);
  EXPECT_FALSE(client.remote_client);
  setenv("NOTIFY_SERVER", "127.0.0.2", 1);
  EXPECT_EQ(say("n"), -1);
  EXPECT_TRUE(client.remote_client);
  EXPECT_EQ(client.server_ipc.load(), nullptr);
}
