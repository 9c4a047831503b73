// SPDX-License-Identifier: MIT
// The commands and their options. Each returns the exit status, and throws Failure with the
// reason if it cannot do its work.
#pragma once

#include <string>
#include <vector>

namespace command {

struct ServeOptions {
  std::string rules;  // a file; "" for none
};
int serve(const ServeOptions& options);

struct SendOptions {
  std::string to;
  std::string notification;
  bool parameter = false;  // whether there is one; null is sent without
  std::string json;        // the parameter; "-" for standard input
  bool lines = false;      // one notification for each line of standard input
  std::string from = "zedipc";
  unsigned int flags = 0;
  bool text = false;  // the parameter is a string's text
  unsigned int count = 1;
  unsigned int every = 0;  // milliseconds
  int wait = -1;           // milliseconds; -1 for not at all
};
int send(const SendOptions& options);

// How notifications are shown, and how long.
struct ViewOptions {
  std::string format = "text";  // text, json, raw
  unsigned int count = 0;       // 0 for no limit
  double timeout = 0;           // seconds; 0 for none
  bool quiet = false;
};

struct ListenOptions {
  std::vector<std::string> notifications;
  std::string name;  // "" for a private one
  int priority = 0;
  std::string execute;  // a command for each; "" for none
  bool shell = false;
  ViewOptions view;
};
int listen(const ListenOptions& options);

int observe(const ViewOptions& options);

struct TopOptions {
  std::string sort = "count";  // count, rate, time, name
  double interval = 1;         // seconds
  double duration = 0;         // seconds; 0 for no end
};
int top(const TopOptions& options);

struct PingOptions {
  unsigned int count = 0;        // 0 for no limit
  unsigned int interval = 1000;  // milliseconds
};
int ping(const PingOptions& options);

struct RulesOptions {
  std::string file;
  std::vector<std::string> explain;  // direction, sender, receiver, notification; or none
};
int rules(const RulesOptions& options);

struct JsonOptions {
  std::string file = "-";
  bool pretty = false;
};
int json(const JsonOptions& options);

}  // namespace command
