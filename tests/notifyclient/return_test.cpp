// SPDX-License-Identifier: MIT
// What the client has no callback for goes back to the server, written anew.
#include <gtest/gtest.h>

#include "delivery_script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// A connection of a client that has nothing registered.
RawPeer connect_without_registrations(const RawListener& listener) {
  EXPECT_EQ(ipcNotify("*", "first", JSObject(), 0, "f"), 0);
  RawPeer server = listener.accept();
  EXPECT_EQ(server.receive_message(), notification("*", "first"));
  return server;
}

}  // namespace

TEST(Returned, IsAUnicastWhenNothingIsRegistered) {
  const RawListener listener;
  const RawPeer server = connect_without_registrations(listener);
  server.send_message(notification("t", "n"));
  EXPECT_EQ(server.receive_message(), notification("t", "n"));
}

TEST(Returned, IsABroadcastWhenNothingIsRegistered) {
  const RawListener listener;
  const RawPeer server = connect_without_registrations(listener);
  server.send_message(notification("*", "n"));
  EXPECT_EQ(server.receive_message(), notification("*", "n"));
}

TEST(Returned, IsWrittenAnewWhenNothingIsRegistered) {
  const RawListener listener;
  const RawPeer server = connect_without_registrations(listener);
  server.send_message("{ \"type\" : \"notify\",\"reference\":77, \"b\":[ 1 , 2.50 ],\"a\":null }");
  EXPECT_EQ(server.receive_message(), R"({"a":null,"b":[1,2.5],"reference":77,"type":"notify"})");
}

TEST(Returned, HasNoKeysOfItsOwnWhenNothingIsRegistered) {
  const RawListener listener;
  const RawPeer server = connect_without_registrations(listener);
  server.send_message(R"({"type":"notify"})");
  EXPECT_EQ(server.receive_message(), R"({"type":"notify"})");
}

TEST(Returned, IsAUnicastThatNobodyMatches) {
  Script script;
  script.receive_as("t", 1);
  const std::string text =
      R"({"flags":2,"from":"f","notification":"n","parameter":{"x":"y"},"reference":5,)"
      R"("to":"other","type":"notify"})";
  script.send(text);
  EXPECT_EQ(script.next("notify"), text);
}

TEST(Returned, HasTheKeysThatWereLookedForWhenNobodyMatches) {
  Script script;
  script.receive_as("t", 1);
  script.send(R"({"type":"notify"})");
  EXPECT_EQ(script.next("notify"),
            R"({"flags":null,"from":null,"notification":null,"parameter":null,"to":null,)"
            R"("type":"notify"})");
}

TEST(Returned, KeepsTheKindsOfWhatItWasSent) {
  Script script;
  script.receive_as("t", 1);
  script.send(R"({"to":7,"from":true,"flags":"9","type":"notify","zzz":[{}]})");
  EXPECT_EQ(script.server().receive_message(),
            R"({"flags":"9","from":true,"notification":null,"parameter":null,"to":7,)"
            R"("type":"notify","zzz":[{}]})");
}

TEST(Returned, IsWhatComesForACallbackThatHasJustGone) {
  Script script;
  script.receive_as("t", 1);
  script.receive_as("t", 1, "other");
  ASSERT_EQ(ipcUnregisterNotificationCB("n", nullptr, nullptr, "t"), 0);
  script.next("unregister");
  script.send(notification("t", "n"));
  EXPECT_EQ(script.next("notify"), notification("t", "n"));
}

TEST(Returned, IsLoggedAsANoteWhenNothingIsRegistered) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "191"}}, [] {  // all but info
    const RawListener& listener = immortal<RawListener>();
    RawPeer& server = immortal<RawPeer>();
    server = connect_without_registrations(listener);
    server.send_message(notification("t", "n"));
    EXPECT_EQ(server.receive_message(), notification("t", "n"));
    lose(server);  // after which the reader has written its line
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err, "note"),
            Lines{"NFYCL:note|reader_thread(): returned notification 'n' back to server, since no "
                  "client registered"});
}

TEST(Returned, IsLoggedAsAWarningWhenNobodyMatches) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "191"}}, [] {
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    script.send(notification("other", "n"));
    EXPECT_EQ(script.next("notify"), notification("other", "n"));
    lose(script.server());  // after which the reader has written its line
  });
  EXPECT_EQ(result.status, 0) << result.out;
  EXPECT_EQ(client_log(result.err, "warning"),
            Lines{"NFYCL:warning|reader_thread(): returned notification 'n' back to server, since "
                  "no matching client"});
}

TEST(Returned, IsLoggedAsReceivedOnlyWhenSomethingIsRegistered) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "64"}}, [] {
    const RawListener& listener = immortal<RawListener>();
    RawPeer& server = immortal<RawPeer>();
    server = connect_without_registrations(listener);
    server.send_message(notification("t", "unheard"));
    EXPECT_EQ(server.receive_message(), notification("t", "unheard"));
    EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, "t"), 0);
    EXPECT_EQ(server.receive_message(), registration("t", "n", 1));
    server.send_message(notification("t", "heard"));
    EXPECT_EQ(server.receive_message(), notification("t", "heard"));
  });
  EXPECT_EQ(result.status, 0) << result.out;
  Lines received;
  for (const std::string& line : client_log(result.err)) {
    if (line.find("received") != std::string::npos) received.push_back(line);
  }
  EXPECT_EQ(received, Lines{"NFYCL:info|reader_thread(): ipc=PTR received notification 'heard' "
                            "(from='f', to='t', para='null', flags=0)"});
}
