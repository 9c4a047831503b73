// SPDX-License-Identifier: MIT
// zedipc observe, and zedipc top where it does not draw on a terminal.
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <thread>

#include "support/raw_peer.h"
#include "support/server_process.h"
#include "tools/strict_json.h"
#include "tools/tool.h"

using namespace command::test;
using zedipc::test::RawPeer;
using zedipc::test::ServerProcess;

namespace {

class Observing : public testing::TestWithParam<std::string> {};

// A server with a receiver "display" of the notifications "a" and "b".
class Scene {
 public:
  Scene() { join(); }

  // Has the server deliver one. The receiver's own connection sends, after its registrations.
  void deliver(const std::string& notification, const std::string& from = "printer") const {
    peer_.send_message(R"({"type":"notify","from":")" + from +
                       R"(","to":"display","parameter":1,"notification":")" + notification +
                       R"("})");
  }

  // Kills the server and starts another, to which only the receiver comes at once.
  void restart() {
    server_.stop();
    server_.start();
    join();
  }

  // Delivers "a" until the condition is true; false if that takes longer than a client
  // needs to find a new server, which is ten seconds.
  [[nodiscard]] bool delivers_until(const std::function<bool()>& condition) const {
    return zedipc::test::eventually(
        [&] {
          deliver("a");
          std::this_thread::sleep_for(std::chrono::milliseconds(20));
          return condition();
        },
        40000);
  }

 private:
  void join() {
    peer_ = RawPeer::connect();
    for (const char* name : {"a", "b"}) {
      peer_.send_message(R"({"type":"register","to":"display","notification":")" +
                         std::string(name) + R"("})");
    }
  }

  ServerProcess server_;
  RawPeer peer_;
};

}  // namespace

TEST(Observe, PrintsALineForEachDelivery) {
  const Scene scene;
  Ready tool({"observe", "--count", "1"});
  EXPECT_EQ(tool.err(), "zedipc: observing\n");
  scene.deliver("a");
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_EQ(tool.out().substr(13), "a printer -> display\n");
}

TEST(Observe, PrintsJsonWithoutAParameter) {
  const Scene scene;
  Ready tool({"observe", "--count", "1", "--format", "json"});
  scene.deliver("a", "\xFF");
  EXPECT_EQ(tool.wait(), 0);
  const std::string line = lines(tool.out()).at(0);
  EXPECT_TRUE(StrictJson::is_valid(line)) << line;
  EXPECT_EQ(line.find(R"({"flags":0,"from":"\u00ff","notification":"a","time":"20)"), 0U) << line;
}

TEST(Observe, PrintsTheNameOfTheNotificationInTheRawFormat) {
  const Scene scene;
  Ready tool({"observe", "--count", "1", "--format", "raw"});
  scene.deliver("b");
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_EQ(tool.out(), "b\n");
}

TEST(Observe, GoesOnWhenTheServerHasBeenRestarted) {
  Scene scene;
  Ready tool({"observe", "--count", "1"});
  scene.restart();
  EXPECT_TRUE(scene.delivers_until([&] { return contains(tool.out(), "a printer -> display"); }));
  EXPECT_EQ(tool.wait(), 0);
}

TEST(Observe, SaysNothingIfItShallBeQuiet) {
  const Scene scene;
  const Result result = run({"observe", "--quiet", "--timeout", "0.1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out + result.err, "");
}

TEST_P(Observing, IsRefusedForAServerOnAnotherMachine) {
  const ServerProcess server("in * * *\n", {});
  const Result result = run({GetParam(), "--server", "127.0.0.2"});
  EXPECT_EQ(result.status, 1);
  EXPECT_EQ(result.err,
            "zedipc: only a client on the server's own machine may observe, and the server is said "
            "to be at '127.0.0.2'. Run this there, without --server, or with 127.0.0.1 or "
            "localhost.\n");
}

TEST_P(Observing, EndsOnCtrlC) {
  const Scene scene;
  Ready tool({GetParam()});
  EXPECT_EQ(tool.interrupt(), 0);
  EXPECT_EQ(tool.err(), "zedipc: observing\n");
}

INSTANTIATE_TEST_SUITE_P(Command, Observing, testing::Values("observe", "top"), command_name);

TEST(Top, PrintsASummaryAtTheEnd) {
  const Scene scene;
  Ready tool({"top", "--timeout", "3"});
  for (const char* notification : {"b", "a", "a", "a"}) scene.deliver(notification);
  EXPECT_EQ(tool.wait(), 0);
  const auto printed = lines(tool.out());
  ASSERT_EQ(printed.size(), 4U) << tool.out();
  EXPECT_EQ(printed[0].find("4 deliveries, "), 0U);
  EXPECT_TRUE(contains(printed[0], " a second, by count"));
  EXPECT_EQ(printed[1], "    COUNT      RATE  SHARE  LAST          NOTIFICATION  FROM -> TO");
  EXPECT_EQ(printed[2].substr(0, 9), "        3");
  EXPECT_TRUE(contains(printed[2], "  75.0%  "));
  EXPECT_TRUE(contains(printed[2], "  a             printer -> display"));
  EXPECT_EQ(printed[3].substr(0, 9), "        1");
  EXPECT_TRUE(contains(printed[3], "  25.0%  "));
  EXPECT_TRUE(contains(printed[3], "  b             printer -> display"));
}

TEST(Top, GoesOnWhenTheServerHasBeenRestarted) {
  Scene scene;
  Ready tool({"top", "--timeout", "20"});
  scene.restart();
  EXPECT_TRUE(scene.delivers_until([&] { return !tool.out().empty(); }));
  EXPECT_EQ(tool.wait(), 0);
  EXPECT_TRUE(contains(tool.out(), "  a             printer -> display")) << tool.out();
}

TEST(Top, EndsAfterItsTime) {
  const Scene scene;
  const Result result = run({"top", "--timeout", "0.1"});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(lines(result.out).size(), 2U);
}
