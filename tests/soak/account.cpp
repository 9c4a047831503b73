// SPDX-License-Identifier: MIT
#include "soak/account.h"

#include <algorithm>
#include <cstddef>

namespace zedipc::soak {

unsigned long Totals::count(Verdict::Outcome outcome) const {
  const auto found = outcomes.find(outcome);
  return found == outcomes.end() ? 0 : found->second;
}

unsigned long Totals::unicasts() const {
  return count(Verdict::kDelivered) + count(Verdict::kReturned) + count(Verdict::kReported) +
         count(Verdict::kGivenUp) + count(Verdict::kRefused) + count(Verdict::kSentToDying) +
         lost();
}

unsigned long Totals::lost() const {
  return count(Verdict::kLostServer) + count(Verdict::kLostSender) + count(Verdict::kLostReceiver);
}

void Account::note(const Event& event) {
  switch (event.kind) {
    case Event::kSending:
    case Event::kSent:
    case Event::kReceived:
    case Event::kAltered:
    case Event::kReported:
    case Event::kSeen:
      note_message(event);
      return;
    case Event::kRegistering:
    case Event::kRegistered:
    case Event::kUnregistering:
    case Event::kUnregistered:
      note_registration(event);
      return;
    case Event::kStarted:
    case Event::kKilled:
    case Event::kServerKilled:
      note_process(event);
  }
}

void Account::note_message(const Event& event) {
  if (is_closed(event.id)) {
    problems_.push_back("message " + std::to_string(event.id) + ": " + to_line(event) + " of " +
                        history_.name(event.life) + " came when it had been judged\n");
    return;
  }
  Message& message = messages_[event.id];
  message.id = event.id;
  switch (event.kind) {
    case Event::kSending:
      message.to = event.record.to;
      message.name = event.record.name;
      message.sending = event.time;
      break;
    case Event::kSent:
      message.sent = event.time;
      message.result = event.value;
      break;
    case Event::kReported:
      message.reports.push_back({event.record.slot, event.time});
      break;
    case Event::kSeen:
      message.seen[event.life].push_back(event.record.to);
      break;
    default:
      message.receipts.push_back(
          {event.life, event.record, event.time, event.kind == Event::kAltered});
      note_trip(message, event);
  }
}

void Account::note_trip(const Message& message, const Event& receipt) {
  const Life life = receipt.life;
  if (life != life_of(message.id) || message.sending == kNever) return;
  auto& kills = history_.server_kills;
  // One that began before a server's end may not have been made on the present one.
  if (!kills.empty() && kills.back().end > message.sending) return;
  for (ServerKill& kill : kills) kill.back.emplace(life, receipt.time);
  history_.registrations.trip(life, message.sending, receipt.time);
  history_.rounds.trip(life, message.sending, receipt.time);
}

void Account::note_registration(const Event& event) {
  Registrations& registrations = history_.registrations;
  if (event.kind == Event::kRegistering) registrations.begin_register(event);
  if (event.kind == Event::kRegistered) registrations.end_register(event);
  if (event.kind == Event::kUnregistering) registrations.begin_unregister(event);
  if (event.kind == Event::kUnregistered) registrations.end_unregister(event);
}

void Account::note_process(const Event& event) {
  if (event.kind == Event::kStarted) {
    history_.lives[event.life] = {event.record.to, event.value != 0, event.time};
    history_.rounds.joined(event.life, event.time);
  } else if (event.kind == Event::kKilled) {
    ClientLife& life = history_.lives.at(event.life);
    life.kill_begin = event.begin;
    life.kill_end = event.time;
    history_.registrations.killed(event.life, event.begin, event.time);
    history_.rounds.left(event.life, event.time);
  } else {
    history_.server_kills.push_back({event.begin, event.time, {}});
    history_.registrations.server_killed(event.begin, event.time);
  }
}

void Account::judge_settled(Time time) {
  for (auto it = messages_.begin(); it != messages_.end();) {
    const Message& message = it->second;
    const bool known = message.sending != kNever && history_.lives.count(life_of(message.id)) != 0;
    if (known && settled(history_, message) <= time) {
      close(message);
      it = messages_.erase(it);
    } else {
      ++it;
    }
  }
  forget();
}

void Account::close(const Message& message) {
  const Verdict verdict = judge(history_, message);
  ++totals_.outcomes[verdict.outcome];
  totals_.demanded += verdict.demanded;
  totals_.free += verdict.free;
  totals_.observed += verdict.observed;
  std::string problem;
  for (const std::string& text : verdict.problems) {
    problem += "message " + std::to_string(message.id) + " " + text + "\n";
  }
  if (!problem.empty()) problems_.push_back(problem + describe(history_, message, origin_));
  auto& closed = closed_[life_of(message.id)];
  closed.resize(std::max<std::size_t>(closed.size(), counter_of(message.id) + 1U));
  closed[counter_of(message.id)] = true;
}

bool Account::is_closed(Id id) const {
  const auto life = closed_.find(life_of(id));
  return life != closed_.end() && counter_of(id) < life->second.size() &&
         life->second[counter_of(id)];
}

std::size_t Account::open(Time until) const {
  return static_cast<std::size_t>(
      std::count_if(messages_.begin(), messages_.end(), [&](const auto& entry) {
        return entry.second.sending == kNever || entry.second.sending <= until;
      }));
}

// No message that is still to be judged, or to come, is older than the oldest here.
void Account::forget() {
  Time oldest = history_.rounds.newest();
  for (const auto& [id, message] : messages_) oldest = std::min(oldest, message.sending);
  history_.registrations.forget(oldest);
  history_.rounds.forget(oldest);
}

}  // namespace zedipc::soak
