// SPDX-License-Identifier: MIT
// zedipc top: the server's traffic as a table, live on a terminal, once at the end
// otherwise.
#include <sys/ioctl.h>
#include <unistd.h>
#include <zedipc/notify.h>

#include <algorithm>
#include <limits>

#include "zedipc/client.h"
#include "zedipc/commands.h"
#include "zedipc/inbox.h"
#include "zedipc/keys.h"
#include "zedipc/output.h"
#include "zedipc/traffic.h"

namespace command {

namespace {

using Seconds = std::chrono::duration<double>;

Clock::time_point after(Clock::time_point start, double seconds) {
  return start + std::chrono::duration_cast<Clock::duration>(Seconds(seconds));
}

// Each table replaces the one before it, and the last one stays on the screen.
class Display {
 public:
  void draw(const Traffic& traffic, const std::string& sort) {
    std::size_t lines = std::numeric_limits<std::size_t>::max();
    std::size_t columns = lines;
    if (output_.terminal()) measure(lines, columns);
    std::string text;
    if (drawn_ > 0) text = "\033[" + std::to_string(drawn_) + "F\033[J";
    drawn_ = 0;
    for (const std::string& line : traffic.table(sort, lines, columns)) {
      text += drawn_ == 1 ? output_.paint(Colour::kBold, line) : line;
      text += '\n';
      ++drawn_;
    }
    output_.write(text);
  }

  [[nodiscard]] bool live() const { return output_.terminal(); }

 private:
  // One line is left for the cursor.
  static void measure(std::size_t& lines, std::size_t& columns) {
    winsize size{};
    const bool known = ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0;
    lines = known ? std::max<std::size_t>(size.ws_row, 4) - 1 : 23;
    columns = known && size.ws_col > 0 ? size.ws_col : 80;
  }

  Output output_;
  std::size_t drawn_ = 0;  // lines
};

}  // namespace

int top(const TopOptions& options) {
  Inbox& inbox = Inbox::instance();
  check(zedipc::ipcRegisterObserver(Inbox::on_delivery, &inbox));
  wait_for_server();
  inbox.catch_signals();
  Keys keys;
  say(keys.active() ? "observing; q ends it" : "observing");

  Traffic traffic;
  Display display;
  const Clock::time_point start = Clock::now();
  const Clock::time_point end =
      options.duration > 0 ? after(start, options.duration) : Clock::time_point::max();
  Clock::time_point interval_start = start;
  while (!Inbox::asked_to_end() && !keys.typed('q') && Clock::now() < end) {
    inbox.watch_input(keys.active());
    const Clock::time_point interval_end = after(interval_start, options.interval);
    if (const auto message = inbox.wait(std::min(interval_end, end))) traffic.add(*message);
    const Clock::time_point now = Clock::now();
    if (!display.live() || now < interval_end) continue;
    traffic.end_interval(Seconds(now - interval_start).count());
    interval_start = now;
    display.draw(traffic, options.sort);
  }
  // If nothing was drawn before, the rates are those of the whole time.
  if (!display.live()) traffic.end_interval(Seconds(Clock::now() - start).count());
  display.draw(traffic, options.sort);
  return kDone;
}

}  // namespace command
