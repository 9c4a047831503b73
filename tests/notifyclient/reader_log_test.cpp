// SPDX-License-Identifier: MIT
// What the reader says about the messages that it receives.
#include <gtest/gtest.h>

#include "delivery_script.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

// The reader's own lines.
Lines reader_log(const ChildResult& result) {
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  Lines lines = client_log(result.err);
  lines.erase(std::remove_if(lines.begin(), lines.end(),
                             [](const std::string& line) {
                               return line.find("|reader_thread()") == std::string::npos;
                             }),
              lines.end());
  return lines;
}

}  // namespace

TEST(ReaderLog, TellsOfAUnicastAndItsCallback) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    Recorder& calls = script.receive_as("t", 2);
    script.send(
        R"({"flags":-1,"from":"f","notification":"n","parameter":{"a":[1]},"to":"t","type":"notify"})");
    calls.calls(1);
  });
  EXPECT_EQ(reader_log(result),
            (Lines{"NFYCL:info|reader_thread(): ipc=PTR received notification 'n' (from='f', "
                   "to='t', para='{\"a\":[1]}', flags=4294967295)",
                   "NFYCL:note|reader_thread(): invoke notification callback (cb=PTR, data=PTR) "
                   "for notification 'n' to 't'"}));
}

TEST(ReaderLog, TellsOfEachCallbackOfABroadcast) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    Script& script = immortal<Script>();
    EXPECT_EQ(ipcRegisterNotificationCB("n", do_nothing, nullptr, 1, "a"), 0);
    script.next("register");
    script.receive_as("b", 1, "other");
    Recorder& calls = script.receive_as("b", 2);
    script.send(notification("*", "n"));
    calls.calls(1);
  });
  EXPECT_EQ(reader_log(result),
            (Lines{"NFYCL:info|reader_thread(): ipc=PTR received notification 'n' (from='f', "
                   "to='*', para='null', flags=0)",
                   "NFYCL:note|reader_thread(): invoke notification callback (cb=PTR, data=(nil)) "
                   "for notification 'n' to '*'",
                   "NFYCL:note|reader_thread(): invoke notification callback (cb=PTR, data=PTR) "
                   "for notification 'n' to '*'"}));
}

TEST(ReaderLog, TellsOfAUnicastErrorAndItsCallbacks) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    Script& script = immortal<Script>();
    Recorder& calls = immortal<Recorder>();
    EXPECT_EQ(ipcRegisterUnicastError(do_nothing, nullptr), 0);
    EXPECT_EQ(ipcRegisterUnicastError(Recorder::notified, &calls), 0);
    script.receive_as("x", 1);
    script.send(notification("t", "n", "unicast_error"));
    calls.calls(1);
  });
  EXPECT_EQ(reader_log(result),
            (Lines{"NFYCL:info|reader_thread(): ipc=PTR received unicast error for notification "
                   "'n' (from='f', to='t', para='null', flags=0)",
                   "NFYCL:note|reader_thread(): invoke unicast error callback (cb=PTR, data=(nil)) "
                   "for notification 'n' to 't'",
                   "NFYCL:note|reader_thread(): invoke unicast error callback (cb=PTR, data=PTR) "
                   "for notification 'n' to 't'"}));
}

TEST(ReaderLog, TellsOfAUnicastErrorThatNobodyHears) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    Script& script = immortal<Script>();
    Recorder& calls = script.receive_as("t", 1);
    script.send(notification("x", "n", "unicast_error"));
    script.send(notification("t", "n"));
    calls.calls(1);
  });
  const Lines lines = reader_log(result);
  ASSERT_EQ(lines.size(), 3U);
  EXPECT_EQ(lines[0],
            "NFYCL:warning|reader_thread(): ipc=PTR received unicast error for notification 'n', "
            "but no client registered");
}

TEST(ReaderLog, TellsOfObserversOnlyThatTheyAreCalled) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    Script& script = immortal<Script>();
    Recorder& calls = immortal<Recorder>();
    EXPECT_EQ(ipcRegisterObserver(ignore_observation, nullptr), 0);
    EXPECT_EQ(ipcRegisterObserver(Recorder::observed, &calls), 0);
    script.next("register_observer");
    script.next("register_observer");
    script.send(observation("t", "n"));
    calls.calls(1);
  });
  EXPECT_EQ(reader_log(result),
            (Lines{"NFYCL:note|reader_thread(): invoke observer callback (cb=PTR, data=(nil)) for "
                   "notification 'n' to 't'",
                   "NFYCL:note|reader_thread(): invoke observer callback (cb=PTR, data=PTR) for "
                   "notification 'n' to 't'"}));
}

TEST(ReaderLog, SaysNothingOfWhatIsIgnored) {
  const ChildResult result = run_in_child(kAllLevels, [] {
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    script.send(observation("t", "n"));
    script.send("no json");
    script.send(R"({"type":"register"})");
    script.send("{}");
    expect_reader_ready(script.server());
  });
  const Lines lines = reader_log(result);
  ASSERT_FALSE(lines.empty());
  EXPECT_EQ(lines[0],
            "NFYCL:info|reader_thread(): ipc=PTR received notification 'unknown' (from='f', "
            "to='nobody', para='null', flags=0)");
}

TEST(ReaderLog, SaysNothingOfABroadcastWithoutATaker) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "191"}}, [] {  // all but info
    Script& script = immortal<Script>();
    Recorder& calls = script.receive_as("t", 1);
    script.send(notification("*", "other"));
    script.send(notification("t", "n"));
    calls.calls(1);
  });
  EXPECT_EQ(reader_log(result),
            Lines{"NFYCL:note|reader_thread(): invoke notification callback (cb=PTR, data=PTR) for "
                  "notification 'n' to 't'"});
}

TEST(ReaderLog, TellsOfTheEndOfTheConnection) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "8"}}, [] {
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    lose(script.server());
  });
  EXPECT_EQ(reader_log(result),
            Lines{"NFYCL:error|reader_thread(): read_msg() on ipc=PTR failed (EOF), terminate."});
}

TEST(ReaderLog, TellsOfAConnectionThatWasReset) {
  const Child child({{"NFY_LOGMASK", "8"}}, [] {
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    script.server().reset();
    pause();
  });
  EXPECT_TRUE(child.wait_for_err("terminate.\n"));
  EXPECT_EQ(client_log(child.err()),
            Lines{"NFYCL:error|reader_thread(): read_msg() on ipc=PTR failed (ERROR), terminate."});
}
