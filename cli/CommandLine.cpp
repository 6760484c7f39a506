#include "CommandLine.h"

#include <algorithm>
#include <charconv>
#include <concepts>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <functional>
#include <iostream>
#include <string>
#include <string_view>
#include <vector>

#include <CLI/CLI.hpp>

#include "base/Text.h"
#include "search/TokenQuery.h"

namespace quon::cli {
namespace {

constexpr unsigned kMostThreads = 1024;
constexpr std::size_t kMostRows = 1'000'000'000;
constexpr unsigned kShortestSide = 200;
constexpr unsigned kLongestSide = 16'384;
constexpr unsigned kMostScale = 8;
constexpr const char* kFolder = "A folder; without one the configured root, else the home folder";
constexpr const char* kFilters =
    "Filters:\n"
    "  kind:video                 files of a kind\n"
    "  size:>1gb  size:<500mb     at least, at most so large\n"
    "  age:>2y    age:<10d        changed longer ago, more recently\n"
    "  in:Library                 with this in the path\n"
    "  name:report                the same as the word alone\n"
    "Quote what the shell would read itself: quon search kind:video \"size:>1gb\"";

/// What protects a word from the library until it is parsed: a word in square brackets would be taken for a
/// list, and one of a text that begins with "-" for an option. No argument of a program contains a NUL.
constexpr char kGuard = '\0';

bool takesText(std::string_view verb) {
  return verb == "search" || verb == "commands";
}

/// The arguments, the last one first, as the library takes them.
std::vector<std::string> guarded(int count, char** arguments) {
  std::vector<std::string> words(arguments + 1, arguments + std::max(count, 1));
  const bool isText = !words.empty() && takesText(words.front());
  for (std::string& word : words) {
    if (word.starts_with('[') && word.ends_with(']')) word += kGuard;
    const bool isShortOption = word.size() > 1 && word[0] == '-' && word[1] != '-';
    if (isText && isShortOption && word != "-h") word.insert(word.begin(), kGuard);
  }
  std::ranges::reverse(words);
  return words;
}

void dropGuards(std::string& text) {
  std::erase(text, kGuard);
}

/// Reads the value of an option; `read` returns false for a value that is none, and `wanted` is what the user
/// reads then.
CLI::Option* addValue(CLI::App& verb, const std::string& name, const std::string& type,
                      const std::string& about, const std::string& wanted,
                      std::function<bool(const std::string&)> read) {
  return verb
      .add_option_function<std::string>(
          name,
          [name, wanted, read = std::move(read)](std::string value) {
            dropGuards(value);
            if (!read(value))
              throw CLI::ValidationError(name + " takes " + wanted + ", not \"" + value + '"');
          },
          about)
      ->type_name(type);
}

template <std::unsigned_integral Number>
CLI::Option* addNumber(CLI::App& verb, const std::string& name, Number& number, Number most,
                       const std::string& about) {
  return addValue(verb, name, "N", about, fmt::format("a number from 1 to {}", most),
                  [&number, most](const std::string& value) {
                    const char* const end = value.data() + value.size();
                    const auto read = std::from_chars(value.data(), end, number);
                    return read.ec == std::errc() && read.ptr == end && number >= 1 && number <= most;
                  });
}

void addPath(CLI::App& verb, Command& command) {
  const auto refuseEmpty = [](const std::string& path) {
    return path.empty() ? std::string("the path is empty") : std::string();
  };
  verb.add_option("PATH", command.path, kFolder)->type_name("")->check(refuseEmpty, "");
}

void addLimit(CLI::App& verb, Command& command) {
  addNumber(verb, "--limit", command.limit, kMostRows,
            fmt::format("The most rows to list (default: {})", command.limit));
}

CLI::Option* addText(CLI::App& verb, Command& command, const std::string& about) {
  return verb
      .add_option_function<std::vector<std::string>>(
          "TEXT",
          [&command](const std::vector<std::string>& words) {
            command.text = fmt::format("{}", fmt::join(words, " "));
          },
          about)
      ->type_name("");
}

/// What every command takes.
void addShared(CLI::App& verb, Command& command) {
  addValue(verb, "--metric", "logical|physical",
           "Which size counts: logical (apparent) or physical (on disk)", "logical or physical",
           [&command](const std::string& value) {
             command.metric = value == "physical" ? Metric::physical : Metric::logical;
             return value == "physical" || value == "logical";
           });
  verb.add_flag("--json", command.json, "Print JSON and nothing else");
  verb.add_flag_callback(
      "--no-catch-up", [&command] { command.catchUp = false; }, "Use a saved index as it stands");
}

void addOlderThan(CLI::App& verb, Command& command) {
  addValue(verb, "--older-than", "AGE", "How long, such as 30d, 6months or 2y (default: 1y)",
           "an age such as 30d, 6months or 2y", [&command](const std::string& value) {
             const auto seconds = TokenQuery::parseDuration(value);
             command.olderThan = seconds.value_or(0);
             return seconds.has_value();
           });
}

void addTrash(CLI::App& verb, Command& command) {
  verb.add_option("PATH", command.items, "What to move: a link is moved itself")->type_name("");
  verb.add_flag("--list", command.listTrash, "List what the trashes of this user contain");
  verb.add_flag("--yes", command.yes, "Do not ask");
  verb.add_flag("--dry-run", command.dryRun, "Move nothing, and say what would be moved");
}

void checkTrash(const Command& command) {
  if (command.verb != Command::Verb::trash) return;
  if (command.listTrash && !command.items.empty()) throw CLI::ValidationError("--list takes no PATH");
  if (!command.listTrash && command.items.empty()) throw CLI::ValidationError("PATH is required");
}

/// "1200x800".
bool readSize(std::string_view text, MapPicture& picture) {
  const std::size_t times = text.find('x');
  if (times == std::string_view::npos) return false;
  const auto read = [](std::string_view digits, unsigned& side) {
    const char* const end = digits.data() + digits.size();
    const auto result = std::from_chars(digits.data(), end, side);
    return result.ec == std::errc() && result.ptr == end && side >= kShortestSide && side <= kLongestSide;
  };
  return read(text.substr(0, times), picture.width) && read(text.substr(times + 1), picture.height);
}

void addPicture(CLI::App& verb, MapPicture& picture) {
  addValue(verb, "-o,--output", "FILE", "The picture to write, .svg or .png",
           "a file that ends in .svg or .png",
           [&picture](const std::string& value) {
             picture.file = value;
             return value.ends_with(".svg") || value.ends_with(".png");
           })
      ->required();
  addValue(verb, "--mode", "sunburst|treemap", "How to draw the folder (default: sunburst)",
           "sunburst or treemap", [&picture](const std::string& value) {
             const auto mode = mapModeOf(value);
             picture.mode = mode.value_or(MapMode::sunburst);
             return mode.has_value();
           });
  addValue(verb, "--size", "WxH", fmt::format("Points (default: {}x{})", picture.width, picture.height),
           fmt::format("two sides from {0} to {1}, such as 1200x800", kShortestSide, kLongestSide),
           [&picture](const std::string& value) { return readSize(value, picture); });
  addNumber(verb, "--scale", picture.scale, kMostScale, "Pixels to a point, of a .png (default: 1)");
  verb.add_flag("--dark", picture.dark, "Light text on a dark ground");
}

/// What the options do not refuse each by itself.
void checkPicture(const MapPicture& picture) {
  if (picture.scale == 1) return;
  if (picture.isVector()) throw CLI::ValidationError("--scale is for .png files; a .svg fits any size");
  if (std::max(picture.width, picture.height) * picture.scale > kLongestSide) {
    throw CLI::ValidationError(fmt::format("a picture of {}x{} pixels is too large; each side may have {}",
                                           picture.width * picture.scale, picture.height * picture.scale,
                                           kLongestSide));
  }
}

void addVerbs(CLI::App& app, Command& command) {
  using Verb = Command::Verb;
  const auto add = [&](const char* name, Verb verb, const char* about) -> CLI::App& {
    CLI::App& added = *app.add_subcommand(name, about);
    added.callback([&command, verb] { command.verb = verb; });
    addShared(added, command);
    return added;
  };

  CLI::App& scan = add("scan", Verb::scan, "Scan a folder afresh and save its index");
  addNumber(scan, "--threads", command.threads, kMostThreads, "How many folders to read at once");
  scan.add_flag_callback(
      "--no-index", [&command] { command.saveIndex = false; }, "Do not save an index");
  scan.add_flag("--cross-devices", command.crossDevices, "Enter other file systems too");

  CLI::App& list = add("ls", Verb::ls, "List a folder, largest first");
  CLI::App& largest = add("largest", Verb::largest, "List the largest files below a folder");
  CLI::App& kinds = add("kinds", Verb::kinds, "Total the files below a folder by kind");
  CLI::App& untouched = add("untouched", Verb::untouched, "List folders and files unchanged for long");
  addOlderThan(untouched, command);
  CLI::App& reclaim = add("reclaim", Verb::reclaim, "List folders whose contents can be made again");

  CLI::App& search = add("search", Verb::search, "Find folders and large files");
  addText(search, command, "Words that must all occur in the path, and filters")->required();
  search.add_option("--in", command.path, kFolder)->type_name("PATH");
  search.footer(kFilters);
  CLI::App& commands = add("commands", Verb::commands, "List what the command bar offers for a text");
  addText(commands, command, "What is typed into the bar");

  CLI::App& map = add("map", Verb::map, "Draw where the storage of a folder goes");
  addPicture(map, command.map);

  CLI::App& names = add("names", Verb::names, "List file names that occur more than once");
  names.add_option("--name", command.name, "List the files of this name instead")->type_name("NAME");

  CLI::App& indexes = add("indexes", Verb::indexes, "List the saved indexes");
  indexes.add_flag("--collect", command.collect, "Remove indexes of deleted folders first");
  CLI::App& watch = add("watch", Verb::watch, "Keep the index of a folder current and report each change");
  add("refresh", Verb::refresh, "Bring every saved index up to date");
  addTrash(add("trash", Verb::trash, "Move files and folders to the trash"), command);
  add("record", Verb::record, "Record file-system events in the foreground");

  for (CLI::App* verb : {&scan, &list, &largest, &kinds, &untouched, &reclaim, &map, &names, &watch}) {
    addPath(*verb, command);
  }
  for (CLI::App* verb : {&list, &largest, &untouched, &reclaim, &search, &names}) addLimit(*verb, command);
}

/// One line for the user.
std::string reasonOf(const CLI::ParseError& error) {
  std::string text = error.what();
  if (text == "A subcommand is required") return "no command given";
  const std::size_t colon = text.find(": ");
  if (dynamic_cast<const CLI::ExtrasError*>(&error) != nullptr) {
    return "unexpected" + text.substr(std::min(colon, text.size()));
  }
  if (dynamic_cast<const CLI::ArgumentMismatch*>(&error) != nullptr) {
    return text.substr(0, colon) + " needs a value";
  }
  return text;
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
  std::vector<std::string> words = guarded(count, arguments);
  const std::string first = words.empty() ? "" : words.back();
  try {
    const bool isKnown = std::ranges::any_of(app.get_subcommands(nullptr),
                                             [&](const CLI::App* verb) { return verb->get_name() == first; });
    if (!isKnown && !first.starts_with('-')) {
      throw CLI::ValidationError(first.empty() ? "no command given" : "no such command: " + first);
    }
    app.parse(words);
    checkTrash(command);
    checkPicture(command.map);
  } catch (const CLI::ParseError& stop) {
    if (stop.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) return app.exit(stop);
    std::string reason = reasonOf(stop);
    dropGuards(reason);
    std::cerr << fmt::format("quon: {} (see quon {}--help)\n", displayText(reason),
                             app.get_subcommands().empty() ? "" : first + " ");
    return kWrongUsage;
  }
  for (std::string* text : {&command.path, &command.name, &command.text}) dropGuards(*text);
  for (std::string& item : command.items) dropGuards(item);
  return command;
}

}  // namespace quon::cli
