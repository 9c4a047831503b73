// SPDX-License-Identifier: MIT
// Departures: who waits for whom.
#include "notifyclient/departure.h"

#include <algorithm>

#include "notifyclient/returns.h"
#include "protocol/protocol.h"

namespace zedipc {

Departure::~Departure() {
  {
    const MutexLock lock(table_lock);
    auto& all = client.departures;
    all.erase(std::find(all.begin(), all.end(), this));
  }
  Returns::resume();
  for (const auto& record : records_) wait_for_calls(*record);
}

void Departure::wait() {
  const MutexLock lock(table_lock);
  ++client.waiting_for_calls;
  const auto has_ended = [](const auto& record)
                             REQUIRES(table_lock) { return calls_have_ended(*record); };
  while (!called_ && !std::all_of(records_.begin(), records_.end(), has_ended)) {
    client.changed.wait(table_lock);
  }
  --client.waiting_for_calls;
}

bool Departure::call(const std::string& to, const std::string& notification) {
  bool found = false;
  for (Departure* const departure : client.departures) {
    if (departure->notification_ != notification) continue;
    if (to != kToAll && to != kToHighestPriority && to != departure->to_) continue;
    departure->called_ = true;
    found = true;
  }
  if (found) client.changed.notify_all();
  return found;
}

}  // namespace zedipc
