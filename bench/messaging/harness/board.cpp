// SPDX-License-Identifier: MIT
#include "harness/board.h"

#include <sys/mman.h>

#include <cerrno>
#include <ctime>
#include <new>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

// Far longer than any batch takes: what has not arrived by then is lost.
constexpr int kPatience = 30;  // seconds

}  // namespace

Nanoseconds now() {
  timespec time{};
  clock_gettime(CLOCK_MONOTONIC, &time);
  return Nanoseconds{time.tv_sec} * 1000000000 + time.tv_nsec;
}

Board::Board(std::size_t size) : size_(size) { sem_init(&complete_, 1, 0); }

Board::~Board() { sem_destroy(&complete_); }

void Board::arrived(Nanoseconds at, std::size_t size) {
  if (size != size_) wrong_.fetch_add(1);
  if (arrivals_.fetch_add(1) + 1 != target_.load()) return;
  last_.store(at);
  sem_post(&complete_);
}

void Board::expect(std::uint64_t arrivals) { target_.fetch_add(arrivals); }

Nanoseconds Board::wait_for_arrivals() {
  timespec deadline{};
  clock_gettime(CLOCK_REALTIME, &deadline);
  deadline.tv_sec += kPatience;
  int result;
  do {
    result = sem_timedwait(&complete_, &deadline);
  } while (result == -1 && errno == EINTR);
  if (result == -1) {
    throw std::runtime_error("only " + std::to_string(arrivals_.load()) + " of " +
                             std::to_string(target_.load()) + " messages have arrived");
  }
  if (wrong_.load() != 0) throw std::runtime_error("messages of the wrong size have arrived");
  require_no_more();
  return last_.load();
}

void Board::require_no_more() const {
  if (arrivals_.load() > target_.load()) throw std::runtime_error("a message has arrived twice");
}

SharedBoard::SharedBoard(std::size_t size) {
  void* const memory =
      mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  board_ = new (memory) Board(size);
}

SharedBoard::~SharedBoard() {
  board_->~Board();
  munmap(board_, sizeof(Board));
}

}  // namespace bench
