#include "CommandLine.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <iostream>
#include <map>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "base/Text.h"
#include "search/TokenQuery.h"

namespace quon::cli {
namespace {

constexpr int kWrongUsage = 2;
constexpr unsigned kMostThreads = 1024;
constexpr std::size_t kMostRows = 1'000'000'000;

/// What follows a word in square brackets until it is parsed: the library takes such words of a text for
/// lists and drops the brackets. No argument of a program holds a NUL.
constexpr char kGuard = '\0';

/// The arguments, the last one first, as the library takes them.
std::vector<std::string> guarded(int count, char** arguments) {
  std::vector<std::string> words(arguments + 1, arguments + std::max(count, 1));
  for (std::string& word : words) {
    if (word.starts_with('[') && word.ends_with(']')) word += kGuard;
  }
  std::ranges::reverse(words);
  return words;
}

void dropGuards(std::string& text) {
  std::erase(text, kGuard);
}

void addShared(CLI::App& verb, Command& command) {
  verb.add_flag("--json", command.json, "Print one JSON document and nothing else");
}

void addPath(CLI::App& verb, Command& command, const std::string& what) {
  const auto refuseEmpty = [](const std::string& path) {
    return path.empty() ? std::string("the path is empty") : std::string();
  };
  verb.add_option("PATH", command.path, what)->check(refuseEmpty, "");
}

void addMetric(CLI::App& verb, Command& command) {
  static const std::map<std::string, Metric> kMetrics{{"logical", Metric::logical},
                                                      {"physical", Metric::physical}};
  verb.add_option("--metric", command.metric, "Which size counts: logical (apparent) or physical (on disk)")
      ->transform(CLI::Transformer(kMetrics))
      ->type_name("logical|physical");
}

void addLimit(CLI::App& verb, Command& command) {
  verb.add_option("--limit", command.limit, "The most rows to list")
      ->check(CLI::Range(std::size_t{1}, kMostRows))
      ->type_name("N")
      ->capture_default_str();
}

CLI::Option* addText(CLI::App& verb, Command& command, const std::string& what) {
  return verb.add_option_function<std::vector<std::string>>(
      "TEXT",
      [&command](const std::vector<std::string>& words) {
        command.text = fmt::format("{}", fmt::join(words, " "));
      },
      what);
}

std::int64_t seconds(const std::string& age) {
  const auto parsed = TokenQuery::parseDuration(lowerCase(age));
  if (!parsed) throw CLI::ValidationError("--older-than", "takes an age such as 30d, 6months or 2y");
  return *parsed;
}

void addVerbs(CLI::App& app, Command& command) {
  const std::string folder = "A folder; without one the configured root, else the home folder";

  CLI::App* scan = app.add_subcommand("scan", "Scan a folder afresh and save its index");
  addPath(*scan, command, folder);
  scan->add_option("--threads", command.threads, "Folders to list at once")
      ->check(CLI::Range(1U, kMostThreads))
      ->type_name("N");
  scan->add_flag("!--no-index", command.saveIndex, "Do not save an index");
  scan->add_flag("--cross-devices", command.crossDevices, "Enter other file systems too");
  scan->callback([&command] { command.verb = Command::Verb::scan; });

  CLI::App* list = app.add_subcommand("ls", "List a folder, largest first");
  addPath(*list, command, folder);
  addLimit(*list, command);
  list->callback([&command] { command.verb = Command::Verb::ls; });

  CLI::App* largest = app.add_subcommand("largest", "List the largest files below a folder");
  addPath(*largest, command, folder);
  addLimit(*largest, command);
  largest->callback([&command] { command.verb = Command::Verb::largest; });

  CLI::App* kinds = app.add_subcommand("kinds", "Total the files below a folder by kind");
  addPath(*kinds, command, folder);
  kinds->callback([&command] { command.verb = Command::Verb::kinds; });

  CLI::App* untouched =
      app.add_subcommand("untouched", "List folders and files that nobody changed for long");
  addPath(*untouched, command, folder);
  addLimit(*untouched, command);
  untouched
      ->add_option_function<std::string>(
          "--older-than", [&command](const std::string& age) { command.olderThan = seconds(age); },
          "How long, such as 6months or 2y (default: 1y)")
      ->type_name("AGE");
  untouched->callback([&command] { command.verb = Command::Verb::untouched; });

  CLI::App* reclaim = app.add_subcommand("reclaim", "List folders whose contents come back by themselves");
  addPath(*reclaim, command, folder);
  addLimit(*reclaim, command);
  reclaim->callback([&command] { command.verb = Command::Verb::reclaim; });

  CLI::App* search =
      app.add_subcommand("search", "Find folders and large files, as in: kind:video size:>1gb in:Library");
  addText(*search, command, "What to find: words, and kind: size: age: in: name:")->required();
  search->add_option("--in", command.path, folder);
  addLimit(*search, command);
  search->callback([&command] { command.verb = Command::Verb::search; });

  CLI::App* commands = app.add_subcommand("commands", "List what the command bar offers for a text");
  addText(*commands, command, "What is typed into the bar");
  commands->callback([&command] { command.verb = Command::Verb::commands; });

  CLI::App* names = app.add_subcommand("names", "List file names that occur more than once");
  addPath(*names, command, folder);
  addLimit(*names, command);
  names->add_option("--name", command.name, "List the files of this name instead")->type_name("NAME");
  names->callback([&command] { command.verb = Command::Verb::names; });

  CLI::App* indexes = app.add_subcommand("indexes", "List the saved indexes");
  indexes->add_flag("--collect", command.collect, "Remove indexes of deleted folders first");
  indexes->callback([&command] { command.verb = Command::Verb::indexes; });

  CLI::App* watch = app.add_subcommand("watch", "Keep the index of a folder current and tell each change");
  addPath(*watch, command, folder);
  watch->callback([&command] { command.verb = Command::Verb::watch; });

  CLI::App* record = app.add_subcommand("record", "Record file-system events in the foreground");
  record->callback([&command] { command.verb = Command::Verb::record; });

  for (CLI::App* verb :
       {scan, list, largest, kinds, untouched, reclaim, names, search, commands, indexes, watch}) {
    addShared(*verb, command);
  }
  for (CLI::App* verb : {list, largest, kinds, untouched, reclaim, names, search, commands}) {
    verb->add_flag("!--no-catch-up", command.catchUp, "Answer from the saved index as it stands");
  }
  for (CLI::App* verb : {scan, list, largest, kinds, untouched, reclaim, search}) addMetric(*verb, command);
}

}  // namespace

std::variant<Command, int> parseCommandLine(int count, char** arguments) {
  Command command;
  CLI::App app(
      "Shows where the storage of a folder goes.\n"
      "quon never writes to your disk. Nothing is moved or deleted unless you pick Move to Trash yourself.",
      "quon");
  app.require_subcommand(1);
  app.set_version_flag("--version", QUON_VERSION);
  addVerbs(app, command);
  try {
    std::vector<std::string> words = guarded(count, arguments);
    app.parse(words);
  } catch (const CLI::ParseError& stop) {
    if (stop.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(stop);
    std::string reason = stop.what();
    dropGuards(reason);
    std::cerr << "quon: " << displayText(reason) << " (see quon --help)\n";
    return kWrongUsage;
  }
  for (std::string* text : {&command.path, &command.name, &command.text}) dropGuards(*text);
  return command;
}

}  // namespace quon::cli
