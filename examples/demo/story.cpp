// SPDX-License-Identifier: MIT
#include "demo/story.h"

#include <signal.h>

#include <algorithm>
#include <chrono>

#include "common/tcp_table.h"

namespace demo {

namespace {

using common::client_port;
using common::listens;
using common::session;

const std::vector<std::string> kClients{"display", "display-spare", "printer", "monitor"};

// The parameter counts up, so that no two notifications are alike.
std::string parameter(int number) { return "{\"tray\":" + std::to_string(number) + "}"; }

Arrival got(const std::string& receiver, const std::string& to, int number) {
  return {receiver, "got paper.out from printer to " + to + ": " + parameter(number)};
}

Arrival seen(const std::string& receiver) {
  return {"monitor", "saw paper.out from printer to " + receiver};
}

Arrival nobody_took(const std::string& to, int number) {
  return {"printer", "nobody took paper.out to " + to + ": " + parameter(number)};
}

Arrival not_sent(const std::string& to) { return {"printer", "cannot send paper.out to " + to}; }

}  // namespace

void Story::play() {
  everybody_joins();
  a_name_reaches_one();
  the_highest_priority_wins();
  everybody_hears();
  the_spare_takes_over();
  nobody_takes_it();
  the_display_returns();
  the_server_dies();
  the_server_returns();
  everybody_leaves();
}

void Story::everybody_joins() {
  screen_.scene("A server, and four programs that join it");
  start_server();
  cast_.start("printer", "printer");
  cast_.wait_until("the printer is ready", [&] { return cast_.said("printer", "ready"); });
  start_display("display", "10");
  start_display("display-spare", "5");
  cast_.start("monitor", "monitor");
  cast_.wait_until("the monitor observes", [&] { return cast_.said("monitor", "observing"); });
  await_reading("monitor");
}

void Story::a_name_reaches_one() {
  screen_.scene("Sent to a name: one receiver gets it, whatever its priority");
  reach("display-spare");
  reach("display");
}

void Story::the_highest_priority_wins() {
  screen_.scene("Sent to \"1\": the highest priority gets it, whatever its name");
  deliver("1", {"display"});
}

void Story::everybody_hears() {
  screen_.scene("Sent to \"*\": everybody gets it");
  deliver("*", {"display", "display-spare"});
}

void Story::the_spare_takes_over() {
  screen_.scene("The display dies: the spare takes over");
  const std::uint16_t port = client_port(cast_["display"].pid());
  cast_.end("display", SIGKILL);
  screen_.tell("display was killed");
  // The server forgets a client and closes its end in one go.
  cast_.wait_until("the server has noticed",
                   [&] { return !session(cast_["server"].pid(), port).has_value(); });
  deliver("1", {"display-spare"});
}

void Story::nobody_takes_it() {
  screen_.scene("Sent to the dead display: the sender is told that nobody took it");
  ledger_.expect(nobody_took("display", send("display")));
  await_expected();
}

void Story::the_display_returns() {
  screen_.scene("The display is back, and with it its priority");
  start_display("display", "10");
  reach("display");
  deliver("1", {"display"});
}

void Story::the_server_dies() {
  screen_.scene("The server dies: nothing can be sent, and the sender is told");
  cast_.end("server", SIGKILL);
  observer_known_ = false;
  screen_.tell("server was killed");
  cast_.wait_until("all clients have noticed", [&] {
    return std::none_of(kClients.begin(), kClients.end(), [&](const std::string& name) {
      return client_port(cast_[name].pid()) != 0;
    });
  });
  ledger_.expect(not_sent("1"));
  ledger_.expect(nobody_took("1", send("1")));
  await_expected();
}

void Story::the_server_returns() {
  screen_.scene("The server is back, and so are all registrations");
  start_server();
  screen_.tell("The printer's next call connects at once. The others are silent:");
  offer("display");
  screen_.tell("they look for the server by themselves, 10 seconds after they lost it ...");
  cast_.wait_until("all clients have connected again", [&] {
    return std::all_of(kClients.begin(), kClients.end(), [&](const std::string& name) {
      return client_port(cast_[name].pid()) != 0;
    });
  });
  for (const std::string& name : kClients) await_reading(name);
  screen_.tell("... and here they are. Nobody has told them anything.");
  reach("display-spare");
  reach("display");
  deliver("1", {"display"});
  deliver("*", {"display", "display-spare"});
}

void Story::everybody_leaves() {
  screen_.scene("Everybody leaves, and the observer adds up");
  for (const char* name : {"printer", "display", "display-spare", "monitor", "server"}) {
    cast_.end(name, SIGTERM);
    if (!cast_[name].succeeded()) {
      throw StoryError(std::string(name) + " did not end well: " + cast_[name].describe_end());
    }
  }
}

void Story::start_server() {
  cast_.start("server", "server");
  cast_.wait_until("the server listens", [&] {
    return cast_.said("server", "opening") && listens(cast_["server"].pid());
  });
  screen_.tell("server listens, as process " + std::to_string(cast_["server"].pid()));
}

void Story::start_display(const std::string& name, const std::string& priority) {
  cast_.start(name, "display", {name, priority});
  cast_.wait_until(name + " has registered", [&] { return cast_.said(name, "registered"); });
  await_reading(name);
}

void Story::await_reading(const std::string& client) {
  const std::uint16_t port = client_port(cast_[client].pid());
  cast_.wait_until("the server has read what " + client + " sent", [&] {
    const auto end = session(cast_["server"].pid(), port);
    return end.has_value() && end->unread == 0;
  });
}

int Story::send(const std::string& to) {
  const int number = ++sent_;
  cast_["printer"].send_line(to + " paper.out " + parameter(number));
  return number;
}

void Story::deliver(const std::string& to, const std::vector<std::string>& receivers) {
  const int number = send(to);
  for (const std::string& receiver : receivers) {
    ledger_.expect(got(receiver, to, number));
    ledger_.expect(seen(receiver));
  }
  await_expected();
}

void Story::reach(const std::string& receiver) {
  constexpr std::chrono::milliseconds kBetweenAttempts{200};
  constexpr std::chrono::seconds kPatience{8};
  const Clock::time_point limit = Clock::now() + kPatience;
  while (!offer(receiver) || !observer_sees(receiver)) {
    if (Clock::now() > limit) {
      throw StoryError("waited in vain until " + receiver +
                       " gets something and the monitor sees it");
    }
    screen_.tell("The server does not know them all yet. Once more:");
    cast_.happens_within(kBetweenAttempts, [] { return false; });
  }
}

bool Story::offer(const std::string& receiver) {
  const int number = send(receiver);
  const Arrival taken = got(receiver, receiver, number);
  const Arrival refused = nobody_took(receiver, number);
  for (const Arrival& arrival : {taken, refused, seen(receiver)}) ledger_.allow(arrival);
  cast_.wait_until("the notification to " + receiver + " is taken or comes back",
                   [&] { return ledger_.count(taken) + ledger_.count(refused) > 0; });
  // One of the two, and not the other.
  const bool was_taken = ledger_.count(taken) > 0;
  ledger_.expect(was_taken ? taken : refused);
  ledger_.disallow(taken);
  ledger_.disallow(refused);
  if (!was_taken) ledger_.disallow(seen(receiver));
  return was_taken;
}

bool Story::observer_sees(const std::string& receiver) {
  constexpr std::chrono::milliseconds kPatience{1000};
  const Arrival sighting = seen(receiver);
  const auto is_there = [&] {
    return ledger_.count(sighting) > ledger_.expected().count(sighting);
  };
  if (observer_known_) {
    cast_.wait_until("the observer sees it", is_there);
  } else if (!cast_.happens_within(kPatience, is_there)) {
    return false;
  }
  observer_known_ = true;
  ledger_.expect(sighting);
  ledger_.disallow(sighting);
  return true;
}

void Story::await_expected() {
  cast_.wait_until("all that is expected has arrived", [&] { return ledger_.missing().empty(); });
}

}  // namespace demo
