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
int lose_before(Mutex& lock, const std::function<int()>& call) {
  lock.lock();
  Task task(call);
  EXPECT_TRUE(task.blocked());
  Connection* const connection = client.server_ipc.exchange(nullptr);
  lock.unlock();
  const int result = task.result();
  client.server_ipc = connection;
  return result;
}

// The log of a child that loses its connection in `call` as above.
Lines log_of_loss(Mutex& lock, int expected, const std::function<int()>& call) {
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
    EXPECT_TRUE(connection_.channel.connect("127.0.0.1", listener_.port(), -1));
    peer_ = listener_.accept();
    EXPECT_EQ(shutdown(connection_.channel.getFD(), SHUT_WR), 0);
  }

  Connection* get() { return &connection_; }
  TCP& channel() { return connection_.channel; }

  // Ends the stream, and lets the channel see that.
  void end() {
    peer_.close();
    EXPECT_TRUE(channel().poll_in(10000));
  }

 private:
  RawListener listener_{"127.0.0.1", 0};
  Connection connection_;
  RawPeer peer_;
};

}  // namespace

TEST(LostConnection, IsFoundByARegistration) {
  EXPECT_EQ(log_of_loss(client.registration_lock, -1,
                        [] { return ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"); }),
            (Lines{"NFYCL:error|register_client(): failed (NO IPC)",
                   "NFYCL:error|ipcRegisterNotificationCB(): server registration failed (to='t', "
                   "notification='n', prio=5)"}));
}

TEST(LostConnection, IsFoundByAnUnregistration) {
  EXPECT_EQ(log_of_loss(client.registration_lock, -1,
                        [] { return ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"); }),
            (Lines{"NFYCL:error|unregister_client(): failed (NO IPC)",
                   "NFYCL:error|ipcUnregisterNotificationCB(): server unregistration failed "
                   "(to='t', notification='n')"}));
}

TEST(LostConnection, IsFoundByAnObserver) {
  EXPECT_EQ(log_of_loss(client.registration_lock, -1,
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
  EXPECT_EQ(lose_before(client.registration_lock,
                        [] { return ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"); }),
            -1);
  const MutexLock lock(table_lock);
  EXPECT_TRUE(client.notification_table.records.empty());
}

TEST(LostConnection, LeavesNoObserver) {
  Script script;
  ASSERT_EQ(say("first"), 0);
  EXPECT_EQ(lose_before(client.registration_lock,
                        [] { return ipcRegisterObserver(ignore_observation, nullptr); }),
            -1);
  const MutexLock lock(table_lock);
  EXPECT_TRUE(client.observer_table.records.empty());
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

TEST(LostConnection, TakesNoWriteWithIt) {
  Script script;
  script.receive_as("t", 1);
  client.send_lock.lock();
  Connection* const connection = client.server_ipc;
  shutdown(script.server().fd(), SHUT_WR);
  EXPECT_TRUE(eventually([&] { return connection->channel.eof(); }));
  // The reader knows; the teardown waits for whoever is writing, and the server may read on.
  EXPECT_EQ(client.server_ipc.load(), connection);
  EXPECT_TRUE(connection->channel.write_msg(kNotifyFrame, 0, notification("t", "last")));
  client.send_lock.unlock();
  EXPECT_EQ(script.next("notify"), notification("t", "last"));
  EXPECT_TRUE(script.server().at_end());
  EXPECT_EQ(client.server_ipc.load(), nullptr);
}

TEST(LostConnection, EndsAWriteToAServerWhoseFrameWasRefused) {
  Script script;
  script.receive_as("t", 1);
  Task sending([] { return ipcNotify("t", "n", JSObject(std::string(8U << 20, 'x')), 0, "f"); });
  ASSERT_TRUE(sending.blocked());
  script.server().send(word(kNotifyFrame) + word(0x7FFFFFFF) + word(0));
  EXPECT_EQ(sending.result(), -1);
}

// A registration whose message failed on a connection that was lost, when another one had
// come into use, which had been told of it.
TEST(LostConnection, DoesNotMatterWhereAnotherOneKnowsOfTheRegistration) {
  Script script;
  EXPECT_EQ(say("first"), 0);
  script.next("notify");
  DeadConnection dead;
  client.send_lock.lock();
  Task entering([] { return ipcRegisterNotificationCB("n", do_nothing, nullptr, 5, "t"); });
  ASSERT_TRUE(entering.blocked());
  Connection* const newer = client.server_ipc.exchange(dead.get());
  table_lock.lock();
  ++client.generation;
  table_lock.unlock();
  client.send_lock.unlock();
  EXPECT_EQ(entering.result(), 0);
  EXPECT_TRUE(dead.channel().error());
  client.server_ipc = newer;
  const MutexLock lock(table_lock);
  EXPECT_EQ(client.notification_table.records.size(), 1U);
}

TEST(SendResult, IsSuccessWithoutAReason) {
  Script script;
  script.receive_as("t", 1);
  const SendResult result = send_to_server(nullptr, notification("t", "n"));
  EXPECT_TRUE(result.sent);
  EXPECT_STREQ(result.reason, "");
  const MutexLock lock(client.send_lock);  // as whoever uses the connection holds it
  EXPECT_EQ(result.ipc, &client.server_ipc.load()->channel);
}

TEST(SendResult, IsAnErrorOfTheWrite) {
  DeadConnection connection;
  const SendResult result = send_to_server(connection.get(), "text");
  EXPECT_FALSE(result.sent);
  EXPECT_STREQ(result.reason, "ERROR");
  EXPECT_EQ(result.ipc, &connection.channel());
}

TEST(SendResult, IsTheEndOfTheStreamIfThatIsKnown) {
  DeadConnection connection;
  connection.end();
  const SendResult result = send_to_server(connection.get(), "text");
  EXPECT_FALSE(result.sent);
  EXPECT_STREQ(result.reason, "EOF");
}

TEST(SendResult, IsLoggedByWhoeverTellsOfAGroup) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "255"}}, [] {
    const LogChannelScope scope(kLogNotifyClient);
    DeadConnection connection;
    connection.end();
    EXPECT_FALSE(register_client(connection.get(), "t", "n", 5));
    EXPECT_FALSE(unregister_client(connection.get(), "t", "n"));
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
    EXPECT_FALSE(send_to_server(connection.get(), "text").sent);
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
