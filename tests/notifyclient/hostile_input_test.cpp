// SPDX-License-Identifier: MIT
// Messages from a server that means no good, or has lost its way.
#include <gtest/gtest.h>

#include "delivery_script.h"
#include "support/instrumented.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

constexpr std::size_t kLimit = 524288;

// Instrumented code takes its time with the largest size; a quarter is too deep for a stack too.
constexpr std::size_t kLargest = kLimit / (kInstrumented ? 4 : 1);

// `begin`, and then `piece` as often as there is room for it in a message.
std::string filled(std::string begin, const std::string& piece) {
  while (begin.size() + piece.size() <= kLargest) begin += piece;
  return begin;
}

std::string head(const std::string& type) {
  return R"({"from":"f","notification":"n","to":"t","type":")" + type + R"(","parameter":)";
}

// How often `piece` stands in the parameter of each call.
struct Counter {
  std::atomic<int> calls{0};
  std::atomic<std::size_t> depth{0};

  static void notified(void* data, const std::string&, const std::string&, const std::string&,
                       const JSObject& parameter, unsigned int) {
    auto* const self = static_cast<Counter*>(data);
    const std::string text = parameter.dump();
    self->depth = static_cast<std::size_t>(std::count(text.begin(), text.end(), text.front()));
    ++self->calls;
  }
};

Counter& count_calls(Script& script) {
  Counter& counter = immortal<Counter>();
  EXPECT_EQ(ipcRegisterNotificationCB("n", Counter::notified, &counter, 1, "t"), 0);
  EXPECT_EQ(ipcRegisterUnicastError(Counter::notified, &counter), 0);
  script.next("register");
  return counter;
}

// The depth that a message's parameter has when it arrives.
std::size_t depth_of(const std::string& message) {
  Script script;
  Counter& counter = count_calls(script);
  script.send(message);
  EXPECT_TRUE(eventually([&] { return counter.calls == 1; }, 30000));
  expect_reader_ready(script.server());
  return counter.depth;
}

// What the log says of a connection on which the server sends `bytes` and then keeps still.
Lines log_of(const std::string& bytes) {
  const Child child({{"NFY_LOGMASK", "8"}, {"IPC_LOGMASK", "8"}}, [&] {
    Script& script = immortal<Script>();
    script.receive_as("t", 1);
    script.server().send(bytes);
    pause();
  });
  EXPECT_TRUE(child.wait_for_err("terminate.\n")) << child.err();
  return log_messages(child.err());
}

}  // namespace

TEST(HostileInput, OfOpeningBracketsIsIgnored) {
  Script script;
  script.receive_as("t", 1);
  script.send(filled("", "["));
  expect_reader_ready(script.server());
}

TEST(HostileInput, OfOpeningBracesIsIgnored) {
  Script script;
  script.receive_as("t", 1);
  script.send(filled("", "{\"a\":"));
  expect_reader_ready(script.server());
}

TEST(HostileInput, OfOpeningBracketsIsAParameter) {
  const std::string text = filled(head("notify"), "[");
  EXPECT_EQ(depth_of(text), kLargest - head("notify").size());
}

TEST(HostileInput, OfOpeningBracesIsAParameter) {
  const std::string begin = head("notify");
  EXPECT_EQ(depth_of(filled(begin, "{\"a\":")), (kLargest - begin.size()) / 5);
}

TEST(HostileInput, OfOpeningBracketsIsAParameterOfAnError) {
  const std::string text = filled(head("unicast_error"), "[");
  EXPECT_EQ(depth_of(text), kLargest - head("unicast_error").size());
}

TEST(HostileInput, OfOpeningBracketsToNobodyGoesBack) {
  Script script;
  script.receive_as("other", 1);
  const std::string text = filled(head("notify"), "[");
  const std::size_t depth = kLargest - head("notify").size();
  script.send(text);
  const std::string returned = script.next("notify");
  EXPECT_EQ(std::count(returned.begin(), returned.end(), '['), static_cast<long>(depth));
  EXPECT_EQ(std::count(returned.begin(), returned.end(), ']'), static_cast<long>(depth));
}

TEST(HostileInput, OfOpeningBracesGoesBackWhenNothingIsRegistered) {
  Script script;
  ASSERT_EQ(ipcNotify("*", "first", JSObject(), 0, "f"), 0);
  script.next("notify");
  const std::string begin = head("notify");
  script.send(filled(begin, "{\"a\":"));
  const std::string returned = script.server().receive_message();
  EXPECT_EQ(std::count(returned.begin(), returned.end(), '}'),
            static_cast<long>((kLargest - begin.size()) / 5 + 1));
}

TEST(HostileInput, OfOpeningBracketsIsLoggedInFull) {
  const ChildResult result = run_in_child({{"NFY_LOGMASK", "64"}}, [] {
    Script& script = immortal<Script>();
    Counter& counter = count_calls(script);
    script.send(filled(head("notify"), "["));
    EXPECT_TRUE(eventually([&] { return counter.calls == 1; }, 30000));
  });
  EXPECT_EQ(result.status, 0) << result.out;
  const auto depth = static_cast<long>(kLargest - head("notify").size());
  EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '['), depth);
}

TEST(FrameSize, UpToTheLimitIsTaken) {
  Script script;
  Recorder& calls = script.receive_as("t", 1);
  const std::string begin = head("notify") + "\"";
  const std::string value(kLimit - begin.size() - 2, 'x');
  const std::string text = begin + value + "\"}";
  ASSERT_EQ(text.size(), kLimit);
  script.send(text);
  EXPECT_EQ(calls.calls(1), Lines{"f>t:n \"" + value + "\" 0"});
}

TEST(FrameSize, AboveTheLimitEndsTheConnection) {
  Script script;
  script.receive_as("t", 1);
  script.server().send(frame(kNotifyFrame, 0, std::string(kLimit + 1, 'x')).substr(0, 12));
  EXPECT_TRUE(script.server().at_end());
  script.server().close();
  EXPECT_EQ(ipcNotify("*", "after", JSObject(), 0, "f"), 0);
  EXPECT_EQ(script.next("register"), registration("t", "n", 1));
}

TEST(FrameSize, AboveTheLimitIsLoggedAsAnError) {
  EXPECT_EQ(log_of(word(kNotifyFrame) + word(kLimit + 5) + word(0)),
            (Lines{"IPC:error|IPC::read_msg() -> size>size_limit (524289>524288)",
                   "NFYCL:error|reader_thread(): read_msg() on ipc=PTR failed (ERROR), "
                   "terminate."}));
}

TEST(FrameSize, BelowNothingEndsTheConnection) {
  EXPECT_EQ(log_of(word(kNotifyFrame) + word(3) + word(0)),
            (Lines{"IPC:error|IPC::read_msg() -> size<0 (-1<0)",
                   "NFYCL:error|reader_thread(): read_msg() on ipc=PTR failed (ERROR), "
                   "terminate."}));
}

TEST(FrameSize, OfAFrameThatIsCutOffEndsTheConnection) {
  Script script;
  script.receive_as("t", 1);
  script.server().send(frame(kNotifyFrame, 0, notification("t", "n")).substr(0, 30));
  lose(script.server());
  EXPECT_EQ(ipcNotify("*", "after", JSObject(), 0, "f"), 0);
  EXPECT_EQ(script.next("register"), registration("t", "n", 1));
}

TEST(FrameSize, OfNothingIsIgnored) {
  Script script;
  script.receive_as("t", 1);
  script.send("");
  expect_reader_ready(script.server());
}
