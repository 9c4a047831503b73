// SPDX-License-Identifier: MIT
// How TCP::connect reads the host's text, which may hold brackets and a port.
#include <gtest/gtest.h>
#include <netdb.h>
#include <zedipc/tcp.h>

#include <cstdio>
#include <ostream>
#include <string>

#include "ipc/endpoints.h"
#include "ipc/setup_calls.h"

using namespace zedipc;
using namespace zedipc::test;

namespace {

struct Host {
  const char* name;  // of the test
  const char* text;
  unsigned short port;
  const char* question;  // what is looked up, as "node|port"; "" if the port is invalid
};

std::ostream& operator<<(std::ostream& out, const Host& host) {
  return out << '"' << host.text << "\" with port " << host.port;
}

const Host kHosts[] = {
    // The port in the text, the name without brackets.
    {"NameAndPort", "host:1234", 0, "host|1234"},
    {"AddressAndPort", "192.0.2.1:1234", 0, "192.0.2.1|1234"},
    {"LastColonOfSeveral", "a:b:12", 0, "a:b|12"},
    {"Ipv6WithoutBrackets", "::1", 0, ":|1"},
    {"PortAlone", ":1234", 0, "|1234"},
    {"BracketInside", "a[b]:12", 0, "a[b]|12"},
    {"BlankAheadOfThePort", "host: 12", 0, "host|12"},
    {"SignAheadOfThePort", "host:+12", 0, "host|12"},
    {"LettersBehindThePort", "host:12abc", 0, "host|12"},
    {"HighestPort", "host:65535", 0, "host|65535"},
    {"PortAbove16Bits", "host:65537", 0, "host|1"},
    {"NegativePort", "host:-1", 0, "host|65535"},
    {"PortAbove32Bits", "host:4294967377", 0, "host|65535"},
    {"HexadecimalPortIsZero", "host:0x10", 0, ""},
    {"NoPort", "host", 0, ""},
    {"NoText", "", 0, ""},
    {"NothingBehindTheColon", "host:", 0, ""},
    {"NoNumber", "host:abc", 0, ""},
    {"Zero", "host:0", 0, ""},
    {"PortOf16ZeroBits", "host:65536", 0, ""},
    // The port in the text, the address in brackets.
    {"BracketsAndPort", "[::1]:1234", 0, "::1|1234"},
    {"BracketsAndMore", "[::1]more:1234", 0, "::1|1234"},
    {"NameInBrackets", "[host]:7", 0, "host|7"},
    {"LastBracketOfSeveral", "[a]b]:7", 0, "a]b|7"},
    {"NothingInBrackets", "[]:7", 0, "|7"},
    {"LastColonBehindBrackets", "[::1]:5:6", 0, "::1|6"},
    {"BracketsWithoutPort", "[::1]", 0, ""},
    {"BracketsWithoutColonBehind", "[::1]1234", 0, ""},
    {"BracketThatIsNotClosed", "[::1", 0, ""},
    {"BracketsAndNoNumber", "[::1]:abc", 0, ""},
    {"BracketsAndNothing", "[::1]:", 0, ""},
    {"BracketsWithoutAColon", "[host]", 0, ""},
    // The port given, the name without brackets: it stays as it is.
    {"GivenPort", "host", 99, "host|99"},
    {"GivenPortAndIpv6", "::1", 1234, "::1|1234"},
    {"GivenPortAndPort", "host:12", 99, "host:12|99"},
    {"GivenPortAndBracketInside", "a[b]c", 99, "a[b]c|99"},
    {"GivenPortAndNoText", "", 99, "|99"},
    {"GivenHighestPort", "host", 65535, "host|65535"},
    // The port given, the address in brackets.
    {"GivenPortAndBrackets", "[::1]", 1234, "::1|1234"},
    {"GivenPortAndPortBehindBrackets", "[::1]:99", 1234, "::1|1234"},
    {"GivenPortAndMoreBehindBrackets", "[::1]more", 1234, "::1|1234"},
    {"GivenPortAndLastBracketOfSeveral", "[a]b]c", 99, "a]b|99"},
    {"GivenPortAndBracketThatIsNotClosed", "[::1", 1234, "::1|1234"},
    {"GivenPortAndABracketAlone", "[", 99, "|99"},
    {"GivenPortAndNothingInBrackets", "[]", 99, "|99"},
};

class TcpHost : public ::testing::TestWithParam<Host> {};

INSTANTIATE_TEST_SUITE_P(Text, TcpHost, ::testing::ValuesIn(kHosts),
                         [](const auto& test) { return test.param.name; });

}  // namespace

TEST_P(TcpHost, GivesNameAndPort) {
  const std::string question = GetParam().question;
  expect_logged([&] {
    SetupCalls calls;
    calls.fail_lookups(EAI_NONAME);
    TCP channel;
    EXPECT_FALSE(channel.connect(GetParam().text, GetParam().port, 10000));
    EXPECT_EQ(channel.getFD(), -1);
    EXPECT_FALSE(channel.error());
    if (question.empty()) {
      EXPECT_TRUE(calls.lookups().empty());
      std::puts("IPC:error|TCP::connect(): invalid port");
    } else if (calls.lookups().size() == 1) {
      EXPECT_EQ(calls.lookups()[0].question, question);
      std::printf("IPC:error|TCP::connect() getaddrinfo failed error %d\n", EAI_NONAME);
    }
  });
}

TEST(TcpHostLookup, IsForStreamsOfAnyFamily) {
  SetupCalls calls;
  calls.fail_lookups(EAI_NONAME);
  TCP channel;
  EXPECT_FALSE(channel.connect("host", 99, -1));
  ASSERT_EQ(calls.lookups().size(), 1U);
  const Lookup lookup = calls.lookups()[0];
  EXPECT_EQ(lookup.flags, 0);
  EXPECT_EQ(lookup.family, AF_UNSPEC);
  EXPECT_EQ(lookup.socktype, SOCK_STREAM);
  EXPECT_EQ(lookup.protocol, 0);
}

TEST(TcpHostLookup, LogsTheErrorOfTheLookup) {
  expect_logged([] {
    SetupCalls calls;
    calls.fail_lookups(EAI_AGAIN);
    TCP channel;
    EXPECT_FALSE(channel.connect("host", 99, -1));
    std::printf("IPC:error|TCP::connect() getaddrinfo failed error %d\n", EAI_AGAIN);
  });
}

TEST(TcpHostMissing, LeavesTheChannelClosed) {
  expect_logged([] {
    TCP channel;
    EXPECT_FALSE(channel.connect(nullptr, 0, -1));
    EXPECT_FALSE(channel.connect(nullptr, 1234, 10));
    EXPECT_EQ(channel.getFD(), -1);
    EXPECT_FALSE(channel.error());
    EXPECT_FALSE(channel.eof());
    std::puts("IPC:error|TCP::connect(): no hostname");
    std::puts("IPC:error|TCP::connect(): no hostname");
  });
}

TEST(TcpHostMissing, EndsTheConnectionThatWas) {
  ConnectedTcp connected;
  EXPECT_FALSE(connected.channel.connect(nullptr, 1234, -1));
  EXPECT_TRUE(connected.peer.at_end());
}

TEST(TcpHostInvalid, EndsTheConnectionThatWas) {
  ConnectedTcp connected;
  EXPECT_FALSE(connected.channel.connect("host", 0, -1));
  EXPECT_TRUE(connected.peer.at_end());
}

// ---- Real addresses

TEST(TcpHostText, CarriesThePortOfAnIpv4Address) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect(("127.0.0.1:" + std::to_string(listener.port())).c_str(), 0, -1));
  EXPECT_EQ(channel.remote_addr(), "127.0.0.1:" + std::to_string(listener.port()));
}

TEST(TcpHostText, CarriesThePortOfAnIpv6Address) {
  if (!has_ipv6()) GTEST_SKIP() << "no IPv6 here";
  TCP listener;
  TCP channel;
  ASSERT_TRUE(listener.listen(0, "::1"));
  ASSERT_TRUE(channel.connect(listener.local_addr(), 0, -1));
  EXPECT_STREQ(channel.remote_addr(), listener.local_addr());
}

TEST(TcpHostText, MayBeAnIpv6AddressWithAPortThatIsIgnored) {
  if (!has_ipv6()) GTEST_SKIP() << "no IPv6 here";
  TCP listener;
  TCP channel;
  ASSERT_TRUE(listener.listen(0, "::1"));
  ASSERT_TRUE(channel.connect("[::1]:99", port_in(listener.local_addr()), -1));
  EXPECT_STREQ(channel.remote_addr(), listener.local_addr());
}

TEST(TcpHostText, MayBeAName) {
  const RawListener listener("127.0.0.1", 0);
  TCP channel;
  ASSERT_TRUE(channel.connect("localhost", listener.port(), -1));
  EXPECT_EQ(channel.remote_addr(), "127.0.0.1:" + std::to_string(listener.port()));
}

TEST(TcpHostText, IsLoggedAsItWasGivenAheadOfThePort) {
  expect_logged([] {
    const RawListener listener("127.0.0.1", 0);
    const std::string text = "[127.0.0.1]:" + std::to_string(listener.port());
    TCP channel;
    EXPECT_TRUE(channel.connect(text.c_str(), 0, -1));
    std::printf("IPC:debug|TCP::connect(): connected to %s:%d (fd=%d)\n", text.c_str(),
                listener.port(), channel.getFD());
  });
}

TEST(TcpHostText, IsLoggedAsItWasGivenWhenNobodyAnswers) {
  expect_logged([] {
    const ClosedPort closed;
    const std::string text = "127.0.0.1:" + std::to_string(closed.port());
    TCP channel;
    EXPECT_FALSE(channel.connect(text.c_str(), 0, -1));
    std::printf("IPC:error|TCP::connect(): failed to connect to %s:%d\n", text.c_str(),
                closed.port());
  });
}
