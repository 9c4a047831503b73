// SPDX-License-Identifier: MIT
#include "soak/registrations.h"

#include <algorithm>

namespace zedipc::soak {

namespace {

// For so long the server may take a client for alive that is not.
constexpr Time kUnnoticedDeath = 2 * kSecond;

void lower(Time& time, Time to) { time = std::min(time, to); }

}  // namespace

void Registrations::begin_register(const Event& event) {
  const Key key{event.life, event.record};
  const auto old = current_.find(key);
  if (old != current_.end()) lower(old->second->touched, event.time);
  all_.push_back({event.life, event.record, event.value, event.time});
  asked_[key] = &all_.back();
}

void Registrations::end_register(const Event& event) {
  const Key key{event.life, event.record};
  const auto asked = asked_.find(key);
  if (asked == asked_.end()) return;
  Stretch* made = asked->second;
  asked_.erase(asked);
  const auto old = current_.find(key);
  if (event.value == 0) {
    made->answered = event.time;
  } else {
    made->touched = event.time;
    made->dropped = event.time;
    // After another failure nobody knows still.
    if (old == current_.end() || old->second->touched < made->asked) return;
    // Nothing has changed: the old one goes on, and has to prove itself anew.
    all_.push_back({event.life, event.record, old->second->priority, made->asked, event.time});
    made = &all_.back();
  }
  if (old != current_.end()) old->second->dropped = event.time;
  current_[key] = made;
}

void Registrations::begin_unregister(const Event& event) {
  const auto old = current_.find({event.life, event.record});
  if (old != current_.end()) lower(old->second->touched, event.time);
}

// After a failure nobody knows whether it still stands, until another call succeeds.
void Registrations::end_unregister(const Event& event) {
  const auto old = current_.find({event.life, event.record});
  if (event.value != 0 || old == current_.end()) return;
  old->second->dropped = event.time;
  current_.erase(old);
}

void Registrations::trip(Life life, Time begin, Time end) {
  for (Stretch& stretch : all_) {
    if (stretch.life != life) continue;
    if (stretch.answered <= begin) lower(stretch.firm, end);
    if (stretch.dropped <= begin) lower(stretch.gone, end);
  }
}

void Registrations::killed(Life life, Time begin, Time end) {
  for (Stretch& stretch : all_) {
    if (stretch.life != life) continue;
    lower(stretch.touched, begin);
    lower(stretch.dropped, end);
    lower(stretch.gone, end + kUnnoticedDeath);
  }
  const auto of_life = [&](std::map<Key, Stretch*>& map) {
    for (auto it = map.begin(); it != map.end();) {
      it = it->first.first == life ? map.erase(it) : std::next(it);
    }
  };
  of_life(current_);
  of_life(asked_);
}

// All that stands has to prove itself on the new server. A call that ended before `end`
// may have met either of the two.
void Registrations::server_killed(Time begin, Time end) {
  std::list<Stretch> anew;
  for (auto& [key, stretch] : current_) {
    if (stretch->touched != kNever) continue;
    stretch->dropped = end;
    anew.push_back({key.first, key.second, stretch->priority, begin, end});
    stretch = &anew.back();
  }
  for (Stretch& stretch : all_) {
    if (stretch.answered != kNever) lower(stretch.touched, begin);
  }
  all_.splice(all_.end(), anew);
}

void Registrations::forget(Time before) {
  all_.remove_if([&](const Stretch& stretch) { return stretch.gone < before; });
}

}  // namespace zedipc::soak
