// SPDX-License-Identifier: MIT
// One notification as a line: for people, or as JSON for programs.
#include "zedipc/view.h"

#include <cstdio>
#include <ctime>

#include "zedipc/text.h"

namespace command {

namespace {

using SystemTime = std::chrono::system_clock::time_point;

int milliseconds_of(SystemTime time) {
  using std::chrono::milliseconds;
  return static_cast<int>(
      std::chrono::duration_cast<milliseconds>(time.time_since_epoch()).count() % 1000);
}

std::string formatted(const std::tm& parts, const char* format, SystemTime time, const char* end) {
  char text[32];
  const std::size_t length = std::strftime(text, sizeof text, format, &parts);
  std::snprintf(text + length, sizeof text - length, ".%03d%s", milliseconds_of(time), end);
  return text;
}

std::string iso_time(SystemTime time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  return formatted(parts, "%Y-%m-%dT%H:%M:%S", time, "Z");
}

std::string text_line(const Message& message, const Output& output) {
  std::string line = output.paint(Colour::kGrey, time_of_day(message.time)) + " " +
                     output.paint(Colour::kBold, printable(message.notification)) + " " +
                     output.paint(Colour::kCyan, printable(message.from)) + " -> " +
                     output.paint(Colour::kGreen, printable(message.to));
  if (message.has_parameter) line += " " + printable(message.parameter.dump());
  if (message.flags != 0) {
    line += output.paint(Colour::kGrey, " flags=" + std::to_string(message.flags));
  }
  return line;
}

std::string json_line(const Message& message) {
  zedipc::JSObject object;
  object("time") = iso_time(message.time);
  object("from") = message.from;
  object("to") = message.to;
  object("notification") = message.notification;
  if (message.has_parameter) object("parameter") = message.parameter;
  // As a plain number: an integer of the library's could come out negative.
  object("flags") = static_cast<unsigned long long>(message.flags);
  return valid_json(object.dump());
}

Clock::time_point end_of(double seconds) {
  if (seconds <= 0) return Clock::time_point::max();
  return Clock::now() +
         std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
}

}  // namespace

std::string time_of_day(SystemTime time) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  return formatted(parts, "%H:%M:%S", time, "");
}

std::string shown(const Message& message, const std::string& format, const Output& output) {
  if (format == "json") return json_line(message);
  if (format == "text") return text_line(message, output);
  return message.has_parameter ? message.parameter.getString() : message.notification;
}

int watch(Inbox& inbox, const ViewOptions& options,
          const std::function<void(const Message&)>& take) {
  const Clock::time_point end = end_of(options.timeout);
  for (unsigned int seen = 0; options.count == 0 || seen < options.count; ++seen) {
    const auto message = inbox.wait(end);
    if (!message) {
      return Inbox::asked_to_end() || options.count == 0 ? kDone : kFailed;
    }
    take(*message);
  }
  return kDone;
}

}  // namespace command
