// SPDX-License-Identifier: MIT
// The rows that say which session receives what.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include <zedipc/ipc.h>

namespace zedipc {

// That a session receives a notification under a name. A row is known by `to`,
// `notification` and `ipc`, and dies with its session.
struct Registration {
  std::string to;
  std::string notification;
  std::int32_t priority = 0;
  IPC* ipc = nullptr;
  bool remote = false;
  std::size_t name_hash = hash_of(notification);

  // Tells nearly all names apart without a look at their text, which lies elsewhere.
  static std::size_t hash_of(const std::string& name) { return std::hash<std::string>()(name); }
};

// The rows in the order in which they were added. Finding, adding and removing one takes
// little more time where there are many.
class RegistrationTable {
 public:
  // In order. A removed row stays, as one without a session, until there are more such rows
  // than others, so that those do not move each time: pass over it. It is no remote one.
  [[nodiscard]] const std::vector<Registration>& rows() const { return rows_; }
  [[nodiscard]] bool empty() const { return rows_.size() == removed_; }
  // How many rows are of remote sessions.
  [[nodiscard]] std::int32_t remote_rows() const { return remote_rows_; }

  // Null if there is none. Valid until rows are added or removed.
  Registration* find(const std::string& to, const std::string& notification, IPC* ipc);
  // A row that is not there yet.
  void add(Registration row);
  // A row that find gave.
  void remove(Registration& row);
  void remove_session(const IPC* ipc);

 private:
  using Key = std::tuple<IPC*, std::string, std::string>;

  void bury(Registration& row);
  void compact();

  std::vector<Registration> rows_;
  std::map<Key, std::size_t> index_;  // the place of each row
  std::size_t removed_ = 0;
  std::int32_t remote_rows_ = 0;
};

}  // namespace zedipc
