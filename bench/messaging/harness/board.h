// SPDX-License-Identifier: MIT
// What the processes of a run share: who is ready, what has arrived and when.
#pragma once

#include <semaphore.h>

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace bench {

using Nanoseconds = std::int64_t;

// CLOCK_MONOTONIC, which is one clock for all processes.
Nanoseconds now();

// Lives in memory that processes forked from this one share. One process sends and waits;
// the others receive and say so.
class Board {
 public:
  // Receivers must accept only messages of this size.
  explicit Board(std::size_t size);
  ~Board();
  Board(const Board&) = delete;
  Board& operator=(const Board&) = delete;

  // ---- For receivers

  // Says that from now on this receiver gets all that is sent.
  void ready() { ready_.fetch_add(1); }
  // Call it for each message, with the time at which the callback was entered.
  void arrived(Nanoseconds at, std::size_t size);

  // ---- For the sender

  [[nodiscard]] int ready_receivers() const { return ready_.load(); }
  // Says how many arrivals wait_for_arrivals() waits for. Call it before sending them.
  void expect(std::uint64_t arrivals);
  // When the last of them arrived. Throws std::runtime_error if they do not all come, if
  // more come, or if one had the wrong size.
  Nanoseconds wait_for_arrivals();
  // Throws if more has arrived than was expected.
  void require_no_more() const;

 private:
  const std::size_t size_;
  std::atomic<int> ready_{0};
  std::atomic<std::uint64_t> arrivals_{0};
  std::atomic<std::uint64_t> target_{0};
  std::atomic<std::uint64_t> wrong_{0};
  std::atomic<Nanoseconds> last_{0};
  sem_t complete_;
};

// A board in shared memory.
class SharedBoard {
 public:
  explicit SharedBoard(std::size_t size);
  ~SharedBoard();
  SharedBoard(const SharedBoard&) = delete;
  SharedBoard& operator=(const SharedBoard&) = delete;

  Board& operator*() { return *board_; }
  Board* operator->() { return board_; }

 private:
  Board* board_;
};

}  // namespace bench
