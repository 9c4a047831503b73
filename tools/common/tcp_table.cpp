// SPDX-License-Identifier: MIT
#include "common/tcp_table.h"

#include <arpa/inet.h>
#include <pwd.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

namespace common {

namespace {

namespace fs = std::filesystem;

constexpr unsigned kStateListen = 0x0A;
constexpr std::size_t kLongestCommand = 120;

// "0100007F:170B": the address in hexadecimal words of this machine's byte order, and
// the port.
bool read_address(const std::string& text, std::string& address, std::uint16_t& port) {
  const std::size_t colon = text.find(':');
  if (colon == std::string::npos) return false;
  address = text.substr(0, colon);
  port = static_cast<std::uint16_t>(std::stoul(text.substr(colon + 1), nullptr, 16));
  return true;
}

// One line of /proc/net/tcp; false for its heading.
bool read_socket(const std::string& line, TcpSocket& socket) {
  std::istringstream words(line);
  std::string number;
  std::string local;
  std::string remote;
  std::string skipped;
  unsigned state = 0;
  words >> number >> local >> remote >> std::hex >> state >> std::dec;
  std::string queues;  // "00000000:0000002A": to be sent, and to be read
  words >> queues >> skipped >> skipped >> socket.uid >> skipped >> socket.inode;
  std::string remote_address;
  socket.listening = state == kStateListen;
  const std::size_t colon = queues.find(':');
  if (!words || colon == std::string::npos) return false;
  socket.unread = std::stoul(queues.substr(colon + 1), nullptr, 16);
  return read_address(local, socket.local_address, socket.local_port) &&
         read_address(remote, remote_address, socket.remote_port);
}

// The inodes of the sockets among a process's descriptors: links like "socket:[1234]".
std::set<unsigned long> socket_inodes(const fs::path& process) {
  std::set<unsigned long> inodes;
  std::error_code error;
  for (fs::directory_iterator it(process / "fd", error), end; !error && it != end;
       it.increment(error)) {
    std::error_code gone;
    const std::string target = fs::read_symlink(it->path(), gone).string();
    unsigned long inode = 0;
    if (!gone && std::sscanf(target.c_str(), "socket:[%lu]", &inode) == 1) inodes.insert(inode);
  }
  return inodes;
}

std::string hex_word(std::uint32_t value) {
  char text[9];
  std::snprintf(text, sizeof text, "%08X", value);
  return text;
}

// Whether a listener on this address leaves no room for one on 127.0.0.1.
bool covers_loopback(const std::string& address) {
  const std::string loopback = hex_word(htonl(INADDR_LOOPBACK));
  const std::string none = hex_word(0);
  const std::string mapped = none + none + hex_word(htonl(0xFFFF));
  return address == loopback || address == none || address == none + none + none + none ||
         address == mapped + loopback || address == mapped + none;
}

// The command line, made harmless for a terminal.
std::string command_of(const fs::path& process) {
  std::ostringstream text;
  text << std::ifstream(process / "cmdline").rdbuf();
  std::string command = text.str();
  while (!command.empty() && command.back() == '\0') command.pop_back();
  if (command.size() > kLongestCommand) command = command.substr(0, kLongestCommand) + "...";
  std::replace_if(
      command.begin(), command.end(),
      [](char c) { return std::iscntrl(static_cast<unsigned char>(c)) != 0; }, ' ');
  return command.empty() ? "no command line" : command;
}

// The process that holds a socket, as its directory in /proc; "" if none can be seen.
fs::path find_process(unsigned long inode) {
  std::error_code error;
  for (fs::directory_iterator it("/proc", error), end; !error && it != end; it.increment(error)) {
    const std::string name = it->path().filename();
    if (!std::all_of(name.begin(), name.end(), [](unsigned char c) { return std::isdigit(c); })) {
      continue;
    }
    if (socket_inodes(it->path()).count(inode) != 0) return it->path();
  }
  return {};
}

std::string user_name(uid_t uid) {
  const passwd* const entry = getpwuid(uid);
  const std::string number = "uid " + std::to_string(uid);
  return entry != nullptr ? std::string(entry->pw_name) + ", " + number : number;
}

}  // namespace

std::vector<TcpSocket> tcp_sockets() {
  std::vector<TcpSocket> sockets;
  for (const char* table : {"/proc/self/net/tcp", "/proc/self/net/tcp6"}) {
    std::ifstream in(table);
    TcpSocket socket{};
    for (std::string line; std::getline(in, line);) {
      if (read_socket(line, socket)) sockets.push_back(socket);
    }
  }
  return sockets;
}

std::vector<TcpSocket> tcp_sockets_of(pid_t pid) {
  const std::set<unsigned long> inodes = socket_inodes("/proc/" + std::to_string(pid));
  if (inodes.empty()) return {};  // a look at the table costs milliseconds
  std::vector<TcpSocket> sockets = tcp_sockets();
  sockets.erase(std::remove_if(sockets.begin(), sockets.end(),
                               [&](const TcpSocket& s) { return inodes.count(s.inode) == 0; }),
                sockets.end());
  return sockets;
}

bool listens(pid_t pid) {
  const auto sockets = tcp_sockets_of(pid);
  return std::any_of(sockets.begin(), sockets.end(),
                     [](const TcpSocket& s) { return s.listening && s.local_port == kPort; });
}

std::uint16_t client_port(pid_t pid) {
  for (const TcpSocket& socket : tcp_sockets_of(pid)) {
    if (socket.remote_port == kPort) return socket.local_port;
  }
  return 0;
}

std::optional<TcpSocket> session(pid_t server, std::uint16_t client_port) {
  for (const TcpSocket& socket : tcp_sockets_of(server)) {
    if (socket.local_port == kPort && socket.remote_port == client_port) return socket;
  }
  return std::nullopt;
}

std::string describe_port_owner(bool any_address) {
  for (const TcpSocket& socket : tcp_sockets()) {
    if (!socket.listening || socket.local_port != kPort) continue;
    if (!any_address && !covers_loopback(socket.local_address)) continue;
    const fs::path process = find_process(socket.inode);
    if (!process.empty()) {
      return "process " + process.filename().string() + " (" + command_of(process) + ")";
    }
    const std::string user = user_name(socket.uid);
    if (socket.uid != geteuid()) return "a process that belongs to another user (" + user + ")";
    return "a process of this user (" + user + ") that cannot be seen from here";
  }
  return "";
}

}  // namespace common
