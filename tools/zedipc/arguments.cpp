// SPDX-License-Identifier: MIT
// The command's options and their checks, by CLI11, and the request that comes of them.
#include "zedipc/arguments.h"

#include <algorithm>
#include <CLI/CLI.hpp>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "zedipc/client.h"
#include "zedipc/commands.h"
#include "zedipc/output.h"
#include "zedipc/text.h"

namespace command {

namespace {

// What the arguments ask for: a command with its options, and the server's host if they
// name one.
struct Request {
  std::function<int()> command;
  std::string server;
};

constexpr int kLongestWait = std::numeric_limits<int>::max();

// Without a description: the help would show it beside the option's own.
template <typename Number>
CLI::Validator range(Number from, Number to) {
  return CLI::Range(from, to).description("");
}
CLI::Validator milliseconds() { return range(0, kLongestWait); }
CLI::Validator seconds() { return range(0.0, 1e9); }
CLI::Validator one_of(const std::vector<std::string>& words) {
  return CLI::IsMember(words).description("");
}
CLI::Validator not_empty() {
  return {[](const std::string& text) { return text.empty() ? "must not be empty" : ""; }, "", ""};
}

// What stands for several receivers is not a name.
CLI::Validator receivers_name() {
  return {[](const std::string& text) {
            const bool wrong = text.empty() || text == "*" || text == "1";
            return wrong ? "must be a name, and '*' and '1' are none" : "";
          },
          "", ""};
}

// Adds a subcommand, which the request takes if the arguments name it.
template <typename Options>
CLI::App* add(CLI::App& app, Request& request, const std::string& name, const std::string& help,
              const std::shared_ptr<Options>& options, int (*command)(const Options&)) {
  CLI::App* const sub = app.add_subcommand(name, help);
  sub->callback(
      [&request, options, command] { request.command = [=] { return command(*options); }; });
  return sub;
}

void add_server(CLI::App& app, Request& request) {
  app.add_option("--server", request.server, "The notification server's host")
      ->check(not_empty())
      ->type_name("HOST");
}

void add_version(CLI::App& app) {
  app.set_version_flag("--version", "zedipc " ZEDIPC_VERSION, "Print the version and exit");
}

void add_view(CLI::App& sub, ViewOptions& view) {
  sub.add_option("--format", view.format, "How notifications are shown: text, json or raw")
      ->check(one_of({"text", "json", "raw"}))
      ->type_name("FORMAT")
      ->capture_default_str();
  sub.add_option("--count", view.count, "End after that many")->type_name("N");
  sub.add_option("--timeout", view.timeout,
                 "End after that time, with status 1 if --count has not been reached")
      ->check(seconds())
      ->type_name("S");
  sub.add_flag("-q,--quiet", view.quiet, "Do not say when it begins");
}

void add_serve(CLI::App& app, Request& request) {
  const auto options = std::make_shared<ServeOptions>();
  CLI::App* const sub = add(app, request, "serve", "Run the notification server", options, serve);
  sub->add_option("--rules", options->rules,
                  "A rule file, which opens the server to other machines")
      ->check(not_empty())
      ->type_name("FILE");
  sub->footer(
      "Examples:\n"
      "  zedipc serve\n"
      "  zedipc serve --rules /etc/zedipc/rules");
}

// With --broadcast or --any there is no TO: the first word is the notification.
void shift_words(SendOptions& options, std::size_t words, bool broadcast, bool any) {
  options.parameter = words > 2;
  if (broadcast || any) {
    if (options.parameter) {
      throw CLI::ValidationError("send", "--broadcast and --any take the place of TO");
    }
    options.parameter = words > 1;
    options.json = options.notification;
    options.notification = options.to;
    options.to = broadcast ? "*" : "1";
  }
  if (options.lines && options.parameter) {
    throw CLI::ValidationError("send", "--lines takes the place of JSON");
  }
  if (options.to.empty() || options.notification.empty()) {
    throw CLI::ValidationError("send", "a receiver (TO) and a NOTIFICATION are required");
  }
}

void add_send(CLI::App& app, Request& request) {
  const auto options = std::make_shared<SendOptions>();
  CLI::App* const sub = app.add_subcommand("send", "Send a notification");
  const std::vector<CLI::Option*> words{
      sub->add_option("TO", options->to, "The receiver's name"),
      sub->add_option("NOTIFICATION", options->notification, "The notification's name"),
      sub->add_option("JSON", options->json, "The parameter; - reads it from standard input")};
  for (CLI::Option* const word : words) word->type_name("");
  CLI::Option* const broadcast = sub->add_flag("--broadcast", "Send to everybody, in place of TO");
  CLI::Option* const any =
      sub->add_flag("--any", "Send to the highest priority, in place of TO")->excludes(broadcast);
  sub->add_option("--from", options->from, "The sender's name")
      ->check(not_empty())
      ->type_name("NAME")
      ->capture_default_str();
  sub->add_option("--flags", options->flags, "32 bits, as 5 or 0x5")->type_name("N");
  sub->add_flag("--string", options->text, "The parameter is a text, and no JSON");
  CLI::Option* const count = sub->add_option("--count", options->count, "Send that often")
                                 ->check(range(1U, std::numeric_limits<unsigned>::max()))
                                 ->type_name("N")
                                 ->capture_default_str();
  sub->add_flag("--lines", options->lines,
                "Send one for each line of standard input, which is its parameter")
      ->excludes(count);
  sub->add_option("--every", options->every, "Pause between two")
      ->check(milliseconds())
      ->type_name("MS")
      ->capture_default_str();
  sub->add_option("--wait", options->wait,
                  "Wait that long for the news that nobody takes it, which gives status 1")
      ->check(milliseconds())
      ->excludes(broadcast)
      ->type_name("MS");
  add_server(*sub, request);
  sub->footer(
      "Examples:\n"
      "  zedipc send display paper.out '{\"tray\":2}'\n"
      "  zedipc send display paper.out --wait 500\n"
      "  zedipc send --broadcast greeting --string 'good morning'\n"
      "  zedipc send --any job - < job.json\n"
      "  sensor | zedipc send log reading --lines");
  sub->callback([&request, options, words, broadcast, any] {
    const auto given = std::count_if(words.begin(), words.end(),
                                     [](const CLI::Option* word) { return word->count() > 0; });
    shift_words(*options, static_cast<std::size_t>(given), broadcast->count() > 0,
                any->count() > 0);
    request.command = [options] { return send(*options); };
  });
}

void add_listen(CLI::App& app, Request& request) {
  const auto options = std::make_shared<ListenOptions>();
  CLI::App* const sub = app.add_subcommand("listen", "Show the notifications that come for a name");
  // An option with many values would split "[a,b]" in two.
  sub->add_option("NOTIFICATION", options->notifications.emplace_back(), "The notifications' names")
      ->required()
      ->check(not_empty())
      ->type_name("...");
  sub->allow_extras();
  sub->add_option("--as", options->name, "The name to receive under, a private one otherwise")
      ->check(receivers_name())
      ->type_name("NAME");
  sub->add_option("--priority", options->priority, "The highest gets what is sent with --any")
      ->type_name("N")
      ->capture_default_str();
  CLI::Option* const execute =
      sub->add_option("--exec", options->execute,
                      "Run a command for each, with ZEDIPC_FROM, ZEDIPC_TO, ZEDIPC_NOTIFICATION "
                      "and ZEDIPC_FLAGS in its environment, and the parameter on standard input")
          ->check(not_empty())
          ->type_name("COMMAND");
  sub->add_flag("--shell", options->shell, "Have a shell run the command")->needs(execute);
  add_view(*sub, options->view);
  add_server(*sub, request);
  sub->footer(
      "Examples:\n"
      "  zedipc listen --as display paper.out\n"
      "  zedipc listen --as display --format json --count 1 --timeout 5 paper.out\n"
      "  zedipc listen --as lamp lamp.on --exec 'lampctl on'\n"
      "  zedipc listen --as log job.done --shell --exec 'cat >> jobs; echo >> jobs'\n"
      "It says 'listening' on standard error as soon as the server knows it. A server on another\n"
      "machine does not say whether its rules admit a receiver.");
  sub->callback([&request, sub, options] {
    for (const std::string& word : sub->remaining()) {
      if (word.empty() || word[0] == '-') throw CLI::ExtrasError({word});
      options->notifications.push_back(word);
    }
    request.command = [options] { return listen(*options); };
  });
}

void add_observe(CLI::App& app, Request& request) {
  const auto options = std::make_shared<ViewOptions>();
  CLI::App* const sub = add(app, request, "observe", "Show all deliveries of this machine's server",
                            options, observe);
  add_view(*sub, *options);
  add_server(*sub, request);
  sub->footer(
      "Examples:\n"
      "  zedipc observe\n"
      "  zedipc observe --format json --timeout 60 > traffic");
}

void add_top(CLI::App& app, Request& request) {
  const auto options = std::make_shared<TopOptions>();
  CLI::App* const sub =
      add(app, request, "top", "Show who sends how much to whom, live on a terminal", options, top);
  sub->add_option("--sort", options->sort, "Sort by count, rate, time or name")
      ->check(one_of({"count", "rate", "time", "name"}))
      ->type_name("KEY")
      ->capture_default_str();
  sub->add_option("--interval", options->interval, "Draw that often")
      ->check(range(0.1, 3600.0))
      ->type_name("S")
      ->capture_default_str();
  sub->add_option("--timeout", options->duration, "End after that time")
      ->check(seconds())
      ->type_name("S");
  add_server(*sub, request);
  sub->footer(
      "Examples:\n"
      "  zedipc top --sort rate\n"
      "  zedipc top --timeout 60 > summary\n"
      "On a terminal q ends it, as Ctrl-C does.");
}

void add_ping(CLI::App& app, Request& request) {
  const auto options = std::make_shared<PingOptions>();
  CLI::App* const sub =
      add(app, request, "ping", "Measure how long a notification takes to the server and back",
          options, ping);
  sub->add_option("--count", options->count, "End after that many")
      ->check(range(0, kLongestWait))
      ->type_name("N");
  sub->add_option("--interval", options->interval, "Pause between two")
      ->check(range(1, kLongestWait))
      ->type_name("MS")
      ->capture_default_str();
  add_server(*sub, request);
  sub->footer(
      "Examples:\n"
      "  zedipc ping --count 5\n"
      "  zedipc ping --interval 10 --count 1000 | tail -n 2");
}

void add_rules(CLI::App& app, Request& request) {
  const auto options = std::make_shared<RulesOptions>();
  CLI::App* const sub =
      add(app, request, "rules", "Check a rule file, and say what it admits", options, rules);
  sub->add_option("FILE", options->file, "The rule file")
      ->required()
      ->check(not_empty())
      ->type_name("");
  sub->add_option("--explain", options->explain,
                  "Say which rule lets a notification in or out, status 1 if none does")
      ->type_size(4)
      ->expected(1)
      ->allow_extra_args(false)
      ->type_name("in|out FROM TO NOTIFICATION");
  sub->footer(
      "Examples:\n"
      "  zedipc rules /etc/zedipc/rules\n"
      "  zedipc rules /etc/zedipc/rules --explain in panel display status.lid");
  sub->callback([&request, options] {
    if (!options->explain.empty() && options->explain[0] != "in" && options->explain[0] != "out") {
      throw CLI::ValidationError("--explain", "the direction is 'in' or 'out'");
    }
    request.command = [options] { return rules(*options); };
  });
}

void add_json(CLI::App& app, Request& request) {
  const auto options = std::make_shared<JsonOptions>();
  CLI::App* const sub =
      add(app, request, "json", "Read JSON tolerantly, and write it compactly", options, json);
  sub->add_option("FILE", options->file, "The file; standard input if there is none")
      ->type_name("");
  sub->add_flag("--pretty", options->pretty, "Write lines, with indentation");
  sub->footer(
      "Examples:\n"
      "  zedipc json settings.json --pretty\n"
      "  echo '{\"tray\":2,}' | zedipc json");
}

// What is wrong with the arguments.
std::string complaint(const CLI::App* app, const CLI::Error& error) {
  const std::vector<std::string> rest = app->remaining();
  const bool no_command = app->get_subcommands().empty() && !rest.empty();
  const std::string text = no_command ? "there is no command '" + printable(rest.front()) + "'"
                                      : printable(error.what());
  return "zedipc: " + text + "\nTry 'zedipc --help', or 'zedipc COMMAND --help'.\n";
}

}  // namespace

int run(int argc, char** argv) {
  CLI::App app{"Sends, receives and watches notifications, and serves them.", "zedipc"};
  Request request;
  add_server(app, request);
  add_version(app);
  app.failure_message(complaint);
  app.require_subcommand(1);
  app.footer(
      "Examples, each in a terminal of its own:\n"
      "  zedipc serve\n"
      "  zedipc listen --as display paper.out\n"
      "  zedipc send display paper.out '{\"tray\":2}'\n"
      "'zedipc COMMAND --help' tells more. The status is 0 if it worked, 1 if not, 2 if it was\n"
      "called wrongly.");
  for (const auto add_command :
       {add_serve, add_send, add_listen, add_observe, add_top, add_ping, add_rules, add_json}) {
    add_command(app, request);
  }
  for (CLI::App* const sub : app.get_subcommands({})) add_version(*sub);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? kDone : kUsage;
  }
  if (!request.server.empty()) setenv("NOTIFY_SERVER", request.server.c_str(), 1);
  silence_log_notice();
  return request.command();
}

}  // namespace command
