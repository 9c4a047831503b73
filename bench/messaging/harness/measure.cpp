// SPDX-License-Identifier: MIT
#include "harness/measure.h"

#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "support/scratch_dir.h"

namespace bench {

namespace {

constexpr int kWarmUp = 20;
constexpr int kLeastSamples = 10;
constexpr std::size_t kLargeSize = 16384;
constexpr int kLargeFloodShare = 10;  // floods of large messages have so many times fewer
constexpr std::size_t kSmallSize = 64;

double microseconds(Nanoseconds time) { return static_cast<double>(time) / 1e3; }

// A server, if there is one, its receivers, and this process as the sender.
class Stage {
 public:
  Stage(Subject& subject, const Work& work) : board_(work.size) {
    server_ = subject.start_server(crew_);
    for (int i = 0; i < work.receivers; ++i) {
      receivers_.push_back(crew_.start("receiver", [&] { subject.receive(work, *board_, i); }));
    }
    crew_.wait_until("all receivers are ready",
                     [&] { return board_->ready_receivers() == work.receivers; });
  }

  Board& board() { return *board_; }
  [[nodiscard]] pid_t server() const { return server_; }
  [[nodiscard]] pid_t receiver() const { return receivers_.front(); }

  // What all of them have used.
  [[nodiscard]] Nanoseconds cpu() const {
    Nanoseconds sum = cpu_time(getpid());
    if (server_ != 0) sum += cpu_time(server_);
    for (const pid_t pid : receivers_) sum += cpu_time(pid);
    return sum;
  }

 private:
  SharedBoard board_;
  Crew crew_;
  pid_t server_;
  std::vector<pid_t> receivers_;
};

// Repeats `step`, which gives a sample, until the time is over.
template <typename Step>
std::vector<double> repeat(const Limits& limits, int least, Step step) {
  std::vector<double> samples;
  const Nanoseconds end = now() + static_cast<Nanoseconds>(limits.seconds * 1e9);
  while (static_cast<int>(samples.size()) < least || now() < end) samples.push_back(step());
  return samples;
}

Result times(const Work& work, const std::vector<double>& samples, Nanoseconds cpu) {
  const auto count = static_cast<double>(samples.size());
  return {work.name,
          quantile(samples, 0.5),
          "us",
          {{"p99", quantile(samples, 0.99)},
           {"cpu_us", microseconds(cpu) / count},
           {"samples", count}}};
}

// The peak of each process of the run, each a result of its own. With larger messages the
// peaks would mostly show their size.
void add_memory(const Stage& stage, const Work& work, std::vector<Result>& results) {
  if (work.size > kSmallSize) return;
  const std::string prefix = "memory/" + work.name + "/";
  const auto add = [&](const char* role, pid_t pid) {
    results.push_back({prefix + role, static_cast<double>(peak_memory(pid)), "KiB", {}});
  };
  if (stage.server() != 0) add("server", stage.server());
  add("receiver", stage.receiver());
  add("sender", getpid());
}

std::vector<Result> round_trips(Subject& subject, const Work& work, const Limits& limits) {
  const zedipc::test::ScratchDir directory;
  const std::string path = directory.file("socket");
  SharedBoard board(work.size);
  Crew crew;
  const pid_t other = crew.start("echo", [&] { subject.echo(work, *board, path); });
  crew.wait_until("the echo is ready", [&] { return board->ready_receivers() == 1; });
  const std::unique_ptr<Caller> caller = subject.make_caller(work, path);
  const auto call = [&] {
    const Nanoseconds begin = now();
    const std::size_t size = caller->call();
    const Nanoseconds end = now();
    if (size != work.size) throw std::runtime_error("a reply has the wrong size");
    return microseconds(end - begin);
  };
  for (int i = 0; i < kWarmUp; ++i) call();
  const Nanoseconds cpu = cpu_time(getpid()) + cpu_time(other);
  const std::vector<double> samples = repeat(limits, kLeastSamples, call);
  return {times(work, samples, cpu_time(getpid()) + cpu_time(other) - cpu)};
}

std::vector<Result> one_at_a_time(Subject& subject, const Work& work, const Limits& limits) {
  Stage stage(subject, work);
  const std::unique_ptr<Sender> sender = subject.make_sender(work);
  const auto send = [&] {
    stage.board().expect(static_cast<std::uint64_t>(work.receivers));
    const Nanoseconds begin = now();
    sender->send();
    sender->flush();
    return microseconds(stage.board().wait_for_arrivals() - begin);
  };
  for (int i = 0; i < kWarmUp; ++i) send();
  const Nanoseconds cpu = stage.cpu();
  const std::vector<double> samples = repeat(limits, kLeastSamples, send);
  std::vector<Result> results{times(work, samples, stage.cpu() - cpu)};
  stage.board().require_no_more();
  add_memory(stage, work, results);
  return results;
}

std::vector<Result> floods(Subject& subject, const Work& work, const Limits& limits) {
  Stage stage(subject, work);
  const std::unique_ptr<Sender> sender = subject.make_sender(work);
  const int count =
      work.size >= kLargeSize ? std::max(1, limits.flood / kLargeFloodShare) : limits.flood;
  const auto flood = [&](int messages) {
    stage.board().expect(static_cast<std::uint64_t>(messages));
    const Nanoseconds begin = now();
    for (int i = 0; i < messages; ++i) sender->send();
    sender->flush();
    return messages / (microseconds(stage.board().wait_for_arrivals() - begin) / 1e6);
  };
  flood(kWarmUp);
  const Nanoseconds cpu = stage.cpu();
  const std::vector<double> samples = repeat(limits, 1, [&] { return flood(count); });
  const double messages = static_cast<double>(samples.size()) * count;
  std::vector<Result> results{{work.name,
                               quantile(samples, 0.5),
                               "/s",
                               {{"cpu_us", microseconds(stage.cpu() - cpu) / messages},
                                {"samples", static_cast<double>(samples.size())},
                                {"flood", static_cast<double>(count)}}}};
  stage.board().require_no_more();
  add_memory(stage, work, results);
  return results;
}

// How often idle processes wake up.
std::vector<Result> idleness(Subject& subject, const Work& work, const Limits& limits) {
  Stage stage(subject, work);
  const auto pause = [](double seconds) { usleep(static_cast<useconds_t>(seconds * 1e6)); };
  pause(0.5);  // what still comes to rest is not what is asked for
  const auto count = [&](pid_t pid) { return pid == 0 ? 0 : sleeps(pid); };
  const long receiver = count(stage.receiver());
  const long server = count(stage.server());
  pause(limits.seconds);
  const auto result = [&](const char* role, long sleeps) {
    return Result{work.name + "/" + role,
                  static_cast<double>(sleeps) / limits.seconds,
                  "wake-ups per second",
                  {}};
  };
  std::vector<Result> results{result("client", count(stage.receiver()) - receiver)};
  if (stage.server() != 0) results.push_back(result("server", count(stage.server()) - server));
  return results;
}

}  // namespace

std::vector<Result> measure(Subject& subject, const Work& work, const Limits& limits) {
  switch (work.kind) {
    case Kind::kRoundTrip:
      return round_trips(subject, work, limits);
    case Kind::kFlood:
      return floods(subject, work, limits);
    case Kind::kIdle:
      return idleness(subject, work, limits);
    case Kind::kLatency:
    case Kind::kBroadcast:
      break;
  }
  return one_at_a_time(subject, work, limits);
}

}  // namespace bench
