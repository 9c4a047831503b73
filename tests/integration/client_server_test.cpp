// SPDX-License-Identifier: MIT
// One server and several clients, each a process of its own that uses the library.
#include <gtest/gtest.h>
#include <signal.h>
#include <zedipc/notify.h>

#include <atomic>
#include <string>

#include "client_process.h"
#include "support/child.h"
#include "support/server_process.h"
#include "support/task.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

const Environment kServerLog = {{"NFY_LOGMASK", "255"}};

// ---- In a client's process

void got(const char* kind, const std::string& from, const std::string& to, const std::string& name,
         const std::string& rest) {
  print(std::string(kind) + " " + from + ">" + to + ":" + name + " " + rest);
}

void receive(void*, const std::string& from, const std::string& to, const std::string& name,
             const JSObject& parameter, unsigned int flags) {
  got("received", from, to, name, parameter.dump() + " " + std::to_string(flags));
}

void fail(void*, const std::string& from, const std::string& to, const std::string& name,
          const JSObject& parameter, unsigned int flags) {
  got("undelivered", from, to, name, parameter.dump() + " " + std::to_string(flags));
}

void observe(void*, const std::string& from, const std::string& to, const std::string& name,
             unsigned int flags) {
  got("observed", from, to, name, std::to_string(flags));
}

void answer(void*, const std::string& from, const std::string&, const std::string& name,
            const JSObject& parameter, unsigned int) {
  ipcNotify(from, name + ".done", parameter);
}

std::atomic<bool> may_leave{false};
Task* leaving = nullptr;

void stay(void*, const std::string&, const std::string&, const std::string&, const JSObject&,
          unsigned int) {
  print("staying");
  EXPECT_TRUE(eventually([] { return may_leave.load(); }));
}

Action registering(const std::string& name, int priority, NotificationCallback callback = receive) {
  return [=] { return ipcRegisterNotificationCB(name, callback, nullptr, priority); };
}

Action unregistering(const std::string& name) {
  return [=] { return ipcUnregisterNotificationCB(name); };
}

Action notifying(const std::string& to, const std::string& name, int parameter = 0) {
  return [=] { return ipcNotify(to, name, JSObject(parameter), 5); };
}

// Does this again and again until it gives `result`, but not for as long as the client
// takes to connect by itself.
Action until(int result, const Action& action) {
  return [=] { return eventually([&] { return action() == result; }, 8000) ? result : 99; };
}

Action observing() {
  return [] { return ipcRegisterObserver(observe); };
}

Action hearing_of_errors() {
  return [] { return ipcRegisterUnicastError(fail); };
}

// Unregisters on a thread of its own; returns when that waits for the running callback.
int begin_to_leave() {
  leaving = new Task([] { return ipcUnregisterNotificationCB("n"); });
  return leaving->blocked() ? 0 : 99;
}

int leave() {
  may_leave = true;
  return leaving->result();
}

// ---- In the test's process

// Sends two messages, of which the second comes to the client while it waits for the
// callback of the first to end, so that it can unregister it.
void send_to_leaver(const ServerProcess& server, ClientProcess& leaver, ClientProcess& sender,
                    unsigned char first, unsigned char second) {
  ASSERT_EQ(leaver.run(0), 0);
  ASSERT_TRUE(logged(server, "'leaver', prio=5)", 1));
  ASSERT_EQ(sender.run(first), 0);
  ASSERT_EQ(leaver.lines("staying", 1).size(), 1U);
  ASSERT_EQ(leaver.run(1), 0);
  ASSERT_EQ(sender.run(second), 0);
  ASSERT_TRUE(logged(server, "delivery of unicast notification 'n' to 'leaver'", 2));
  ASSERT_EQ(leaver.run(2), 0);
}

}  // namespace

TEST(ClientsAndServer, UnicastGoesToItsName) {
  ServerProcess server(kServerLog);
  ClientProcess display("display", {registering("n", 1)});
  ClientProcess logger("logger", {registering("n", 9)});
  ClientProcess sender("sender", {notifying("display", "n", 42), notifying("logger", "n", 43)});
  ASSERT_EQ(display.run(0), 0);
  ASSERT_EQ(logger.run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 2));
  ASSERT_EQ(sender.run(0), 0);
  EXPECT_EQ(display.lines("received", 1), Lines{"received sender>display:n 42 5"});
  ASSERT_EQ(sender.run(1), 0);
  EXPECT_EQ(logger.lines("received", 1), Lines{"received sender>logger:n 43 5"});
  EXPECT_EQ(display.lines("received").size(), 1U);
}

TEST(ClientsAndServer, UnicastToThePriorityGoesToTheHighest) {
  ServerProcess server(kServerLog);
  ClientProcess low("low", {registering("n", 1)});
  ClientProcess high("high", {registering("n", 2), registering("n", 0)});
  ClientProcess sender("sender", {notifying("1", "n", 1), notifying("1", "n", 2)});
  ASSERT_EQ(high.run(0), 0);
  ASSERT_EQ(low.run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 2));
  ASSERT_EQ(sender.run(0), 0);
  EXPECT_EQ(high.lines("received", 1), Lines{"received sender>1:n 1 5"});
  ASSERT_EQ(high.run(1), 0);
  ASSERT_TRUE(logged(server, "existing registration updated", 1));
  ASSERT_EQ(sender.run(1), 0);
  EXPECT_EQ(low.lines("received", 1), Lines{"received sender>1:n 2 5"});
  EXPECT_EQ(high.lines("received").size(), 1U);
}

TEST(ClientsAndServer, UnicastGoesToTheOneRegisteredLastOfEquals) {
  ServerProcess server(kServerLog);
  ClientProcess first("t", {registering("n", 3)});
  ClientProcess last("t", {registering("n", 3)});
  ClientProcess sender("sender", {notifying("t", "n")});
  ASSERT_EQ(first.run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 1));
  ASSERT_EQ(last.run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 2));
  ASSERT_EQ(sender.run(0), 0);
  EXPECT_EQ(last.lines("received", 1), Lines{"received sender>t:n 0 5"});
  EXPECT_EQ(first.lines("received"), Lines{});
}

TEST(ClientsAndServer, UnicastGoesToTheNextWhenTheBestHasDied) {
  ServerProcess server(kServerLog);
  ClientProcess spare("t", {registering("n", 1)});
  ClientProcess best("t", {registering("n", 2)});
  ClientProcess sender("sender", {notifying("t", "n", 1), notifying("t", "n", 2)});
  ASSERT_EQ(spare.run(0), 0);
  ASSERT_EQ(best.run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 2));
  ASSERT_EQ(sender.run(0), 0);
  EXPECT_EQ(best.lines("received", 1), Lines{"received sender>t:n 1 5"});
  best.process().kill(SIGKILL);
  ASSERT_TRUE(logged(server, "close session", 1));
  ASSERT_EQ(sender.run(1), 0);
  EXPECT_EQ(spare.lines("received", 1), Lines{"received sender>t:n 2 5"});
}

TEST(ClientsAndServer, BroadcastReachesEverybodyOnceTheSenderToo) {
  ServerProcess server(kServerLog);
  ClientProcess a("a", {registering("n", 1)});
  ClientProcess b("b", {registering("n", -7)});
  ClientProcess other("other", {registering("different", 1)});
  ClientProcess sender("sender", {registering("n", 0), notifying("*", "n", 3)});
  for (ClientProcess* client : {&a, &b, &other, &sender}) ASSERT_EQ(client->run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 4));
  ASSERT_EQ(sender.run(1), 0);
  for (const ClientProcess* client : {&a, &b, &sender}) {
    EXPECT_EQ(client->lines("received", 1), Lines{"received sender>*:n 3 5"});
  }
  EXPECT_EQ(other.lines("received"), Lines{});
}

TEST(ClientsAndServer, ObserversSeeEveryDelivery) {
  ServerProcess server(kServerLog);
  ClientProcess a("a", {registering("n", 1)});
  ClientProcess b("b", {registering("n", 2)});
  ClientProcess observer("observer", {observing()});
  ClientProcess sender("sender", {notifying("*", "n"), notifying("1", "n"), notifying("x", "n"),
                                  notifying("a", "n")});
  for (ClientProcess* client : {&a, &b, &observer}) ASSERT_EQ(client->run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 2));
  ASSERT_TRUE(logged(server, "registered local client as observer", 1));
  for (unsigned char action = 0; action < 4; ++action) ASSERT_EQ(sender.run(action), 0);
  EXPECT_EQ(observer.lines("observed", 4),
            (Lines{"observed sender>a:n 5", "observed sender>a:n 5", "observed sender>b:n 5",
                   "observed sender>b:n 5"}));
}

TEST(ClientsAndServer, ObserversThatLeftSeeNothing) {
  ServerProcess server(kServerLog);
  ClientProcess a("a", {registering("n", 1)});
  ClientProcess observer("observer", {observing(), [] { return ipcUnregisterObserver(nullptr); },
                                      registering("end", 1)});
  ClientProcess sender("sender", {notifying("a", "n"), notifying("observer", "end")});
  ASSERT_EQ(a.run(0), 0);
  for (unsigned char action = 0; action < 3; ++action) ASSERT_EQ(observer.run(action), 0);
  ASSERT_TRUE(logged(server, "new registration added", 2));
  ASSERT_EQ(sender.run(0), 0);
  ASSERT_EQ(sender.run(1), 0);
  ASSERT_EQ(observer.lines("received", 1).size(), 1U);
  EXPECT_EQ(observer.lines("observed"), Lines{});
}

TEST(ClientsAndServer, SenderHearsOfAUnicastThatNobodyTook) {
  ServerProcess server;
  ClientProcess sender("sender", {hearing_of_errors(), notifying("nobody", "n", 8)});
  ASSERT_EQ(sender.run(0), 0);
  ASSERT_EQ(sender.run(1), 0);
  EXPECT_EQ(sender.lines("undelivered", 1), Lines{"undelivered sender>nobody:n 8 5"});
}

TEST(ClientsAndServer, SenderAloneHearsOfItsErrors) {
  ServerProcess server(kServerLog);
  ClientProcess bystander("bystander", {hearing_of_errors(), registering("end", 1)});
  ClientProcess sender(
      "sender", {hearing_of_errors(), notifying("nobody", "n"), notifying("bystander", "end")});
  ASSERT_EQ(bystander.run(0), 0);
  ASSERT_EQ(bystander.run(1), 0);
  ASSERT_TRUE(logged(server, "new registration added", 1));
  for (unsigned char action = 0; action < 3; ++action) ASSERT_EQ(sender.run(action), 0);
  ASSERT_EQ(sender.lines("undelivered", 1).size(), 1U);
  ASSERT_EQ(bystander.lines("received", 1).size(), 1U);
  EXPECT_EQ(bystander.lines("undelivered"), Lines{});
}

TEST(ClientsAndServer, BroadcastToNobodyIsNoError) {
  ServerProcess server;
  ClientProcess sender("sender",
                       {hearing_of_errors(), notifying("*", "n", 1), notifying("nobody", "n", 2)});
  for (unsigned char action = 0; action < 3; ++action) ASSERT_EQ(sender.run(action), 0);
  EXPECT_EQ(sender.lines("undelivered", 1), Lines{"undelivered sender>nobody:n 2 5"});
}

TEST(ClientsAndServer, ReceiverThatHasDiedIsNobody) {
  ServerProcess server(kServerLog);
  ClientProcess receiver("t", {registering("n", 1)});
  ClientProcess sender("sender", {hearing_of_errors(), notifying("t", "n", 1)});
  ASSERT_EQ(receiver.run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 1));
  receiver.process().kill(SIGKILL);
  ASSERT_TRUE(logged(server, "close session", 1));
  ASSERT_EQ(sender.run(0), 0);
  ASSERT_EQ(sender.run(1), 0);
  EXPECT_EQ(sender.lines("undelivered", 1), Lines{"undelivered sender>t:n 1 5"});
}

TEST(ClientsAndServer, ReceiverThatUnregisteredIsNobody) {
  ServerProcess server(kServerLog);
  ClientProcess receiver("t", {registering("n", 1), unregistering("n")});
  ClientProcess sender("sender", {hearing_of_errors(), notifying("t", "n", 1)});
  ASSERT_EQ(receiver.run(0), 0);
  ASSERT_EQ(receiver.run(1), 0);
  ASSERT_TRUE(logged(server, "unregistered local client", 1));
  ASSERT_EQ(sender.run(0), 0);
  ASSERT_EQ(sender.run(1), 0);
  EXPECT_EQ(sender.lines("undelivered", 1), Lines{"undelivered sender>t:n 1 5"});
}

TEST(ClientsAndServer, CallbacksAnswer) {
  ServerProcess server(kServerLog);
  ClientProcess service("service", {registering("work", 1, answer)});
  ClientProcess customer("customer",
                         {registering("work.done", 1), notifying("service", "work", 6)});
  ASSERT_EQ(service.run(0), 0);
  ASSERT_EQ(customer.run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 2));
  ASSERT_EQ(customer.run(1), 0);
  EXPECT_EQ(customer.lines("received", 1), Lines{"received service>customer:work.done 6 0"});
}

TEST(ClientsAndServer, MessageForACallbackThatHasJustGoneIsAnError) {
  ServerProcess server(kServerLog);
  ClientProcess leaver("leaver", {registering("n", 5, stay), begin_to_leave, leave});
  ClientProcess sender(
      "sender", {notifying("leaver", "n", 1), notifying("leaver", "n", 2), hearing_of_errors()});
  ASSERT_EQ(sender.run(2), 0);
  send_to_leaver(server, leaver, sender, 0, 1);
  EXPECT_EQ(sender.lines("undelivered", 1), Lines{"undelivered sender>leaver:n 2 5"});
}

TEST(ClientsAndServer, MessageForACallbackThatHasJustGoneGoesToTheNext) {
  ServerProcess server(kServerLog);
  ClientProcess spare("spare", {registering("n", 1)});
  ClientProcess leaver("leaver", {registering("n", 5, stay), begin_to_leave, leave});
  ClientProcess sender("sender", {notifying("1", "n", 1), notifying("1", "n", 2)});
  ASSERT_EQ(spare.run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 1));
  send_to_leaver(server, leaver, sender, 0, 1);
  EXPECT_EQ(spare.lines("received", 1), Lines{"received sender>1:n 2 5"});
}

TEST(ClientsAndServer, RegistrationsComeBackByThemselvesAfterARestart) {
  ServerProcess server(kServerLog);
  ClientProcess a("a", {registering("n", 1), registering("m", 2)});
  ClientProcess b("b", {registering("n", 3), observing()});
  for (unsigned char action = 0; action < 2; ++action) {
    ASSERT_EQ(a.run(action), 0);
    ASSERT_EQ(b.run(action), 0);
  }
  ClientProcess sender("sender",
                       {notifying("a", "n", 1), notifying("a", "m", 2), notifying("b", "n", 3)});
  ASSERT_TRUE(logged(server, "new registration added", 3));
  server.stop();
  server.start();
  ASSERT_TRUE(logged(server, "new registration added", 3, 25000));
  ASSERT_TRUE(logged(server, "registered local client as observer", 1));
  for (unsigned char action = 0; action < 3; ++action) ASSERT_EQ(sender.run(action), 0);
  EXPECT_EQ(a.lines("received", 2), (Lines{"received sender>a:m 2 5", "received sender>a:n 1 5"}));
  EXPECT_EQ(b.lines("received", 1), Lines{"received sender>b:n 3 5"});
  EXPECT_EQ(b.lines("observed", 3).size(), 3U);
}

TEST(ClientsAndServer, RegistrationsComeBackWithTheNextCallAfterARestart) {
  ServerProcess server(kServerLog);
  ClientProcess client("t", {registering("n", 1), until(-1, notifying("t", "n", 7)),
                             until(0, notifying("t", "n", 8))});
  ASSERT_EQ(client.run(0), 0);
  ASSERT_TRUE(logged(server, "new registration added", 1));
  server.stop();
  ASSERT_EQ(client.run(1), -1);
  server.start();
  ASSERT_EQ(client.run(2), 0);
  EXPECT_EQ(client.lines("received", 1), Lines{"received t>t:n 8 5"});
}
