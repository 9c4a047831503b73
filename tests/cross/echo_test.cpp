// SPDX-License-Identifier: MIT
// Frames from one machine to the other and back.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <string>
#include <tuple>

#include "cross/machines.h"
#include "echo_protocol.h"
#include "support/scratch_dir.h"

using namespace example::test;
using zedipc::test::ScratchDir;

namespace {

using Direction = std::tuple<Machine, Machine>;  // of the server, of the client

class Echo : public testing::TestWithParam<std::tuple<Direction, std::size_t>> {};

std::string name_of_echo(const testing::TestParamInfo<Echo::ParamType>& info) {
  const auto& [direction, size] = info.param;
  const auto& [server, client] = direction;
  return name_of(client) + "To" + name_of(server) + "_" + std::to_string(size);
}

// A text in which a byte that is lost, doubled or moved shows.
std::string text_of(std::size_t size) {
  std::string text(size, ' ');
  for (std::size_t i = 0; i < size; ++i) text[i] = static_cast<char>('!' + i * 7 % 89);
  return text;
}

// What a program's file says of the machine that it is for.
std::string machine_of(const std::string& path) {
  std::array<char, 20> begin{};
  std::ifstream(path, std::ios::binary).read(begin.data(), begin.size());
  return {begin.begin(), begin.end()};
}

}  // namespace

TEST(Programs, AreForTwoMachines) {
  const std::string native = machine_of(program(Machine::kNative, "echo_server"));
  const std::string emulated = machine_of(program(Machine::kEmulated, "echo_server.emulated"));
  EXPECT_EQ(native.substr(1, 3), "ELF");
  EXPECT_EQ(emulated.substr(1, 3), "ELF");
  EXPECT_NE(native, emulated);
}

TEST_P(Echo, ReturnsTheTextUnchanged) {
  const auto& [direction, size] = GetParam();
  const auto& [server_machine, client_machine] = direction;
  const ScratchDir dir;
  Running server(program(server_machine, "echo_server"), {dir.file("socket")});
  ASSERT_TRUE(server.prints("listening"));
  const std::string text = text_of(size);
  const Result result = run(program(client_machine, "echo_client"), {dir.file("socket"), text});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.output, "echo_client: " + text + "\n");
  EXPECT_TRUE(server.prints("echo_server: " + std::to_string(size) + " bytes"));
}

INSTANTIATE_TEST_SUITE_P(
    BetweenMachines, Echo,
    testing::Combine(testing::Values(Direction{Machine::kNative, Machine::kEmulated},
                                     Direction{Machine::kEmulated, Machine::kNative}),
                     testing::Values(0U, 1U, 3U, 4U, 255U, 256U, 4097U, 65535U,
                                     std::size_t{example::kEchoLimit})),
    name_of_echo);
