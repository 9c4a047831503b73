// SPDX-License-Identifier: MIT
// What the demo shows, scene by scene.
#pragma once

#include <string>
#include <vector>

#include "demo/cast.h"
#include "demo/ledger.h"
#include "demo/screen.h"

namespace demo {

class Story {
 public:
  Story(Screen& screen, Ledger& ledger, Cast& cast)
      : screen_(screen), ledger_(ledger), cast_(cast) {}

  // Plays all scenes. Throws StoryError when something goes another way than it should.
  void play();

 private:
  void everybody_joins();
  void a_name_reaches_one();
  void the_highest_priority_wins();
  void everybody_hears();
  void the_spare_takes_over();
  void nobody_takes_it();
  void the_display_returns();
  void the_server_dies();
  void the_server_returns();
  void everybody_leaves();

  void start_server();
  void start_display(const std::string& name, const std::string& priority);

  // Waits until the server has read what the client has sent. Only what reach() waits
  // for shows that it is done with it; this makes it work at the first attempt.
  void await_reading(const std::string& client);
  // Has the printer send; gives the number that tells the notifications apart.
  int send(const std::string& to);
  // Sends what these receivers must get, and the observer see.
  void deliver(const std::string& to, const std::vector<std::string>& receivers);
  // Sends until the receiver gets it and the observer sees it. Only then are they known
  // to be registered: a registration is confirmed by nobody.
  void reach(const std::string& receiver);
  // Sends once; gives false if nobody took it.
  bool offer(const std::string& receiver);
  // Whether the observer sees what the receiver just got.
  bool observer_sees(const std::string& receiver);
  void await_expected();

  Screen& screen_;
  Ledger& ledger_;
  Cast& cast_;
  int sent_ = 0;
  bool observer_known_ = false;  // to the server that runs now
};

}  // namespace demo
