#include <algorithm>
#include <cstdio>
#include <fmt/format.h>
#include <iostream>
#include <string>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"
#include "RowTable.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "base/Reason.h"
#include "base/Text.h"
#include "platform/Files.h"
#include "trash/TrashRules.h"

namespace quon::cli {
namespace {

using Failed = TrashOutcome::Failed;

struct Selected {
  TrashItem item;
  Freed freed;
  bool isNested = false;  ///< lies in another, and is moved with it
};

struct Selection {
  std::vector<Selected> items;
  std::vector<Failed> refused;
  Freed freed;
};

/// The item that was named, which may be a link: only what lies above it is resolved. TrashFailure.
std::string pathOf(const Session& session, const std::string& typed) {
  if (typed.empty()) throw TrashFailure("the path is empty");
  const std::string path = withoutTrailingSlashes(typed);
  const std::string name(lastComponent(path));
  // A pattern for hidden files may match both.
  if (name == "." || name == "..") throw TrashFailure("\"" + name + "\" is not taken as the name of a folder");
  std::error_code error;
  const bool isPlain = path.find('/') == std::string::npos;
  const std::string above = isPlain ? "." : std::string(parentPath(path));
  const auto resolved = session.platform.files.canonical(above, error);
  if (!resolved) {
    throw TrashFailure(error == std::errc::no_such_file_or_directory ? "no such file or folder" : reasonOf(error));
  }
  return path == "/" ? path : joinPath(pathPrefix(*resolved), name);
}

Selection select(Session& session, const std::vector<std::string>& typed) {
  Selection selection;
  PathSet paths;
  const TrashRules rules(session.platform, session.folders);
  for (const std::string& each : typed) {
    std::string path = each;
    try {
      path = pathOf(session, each);
      const std::string refusal = rules.refusalOf(path, "");
      if (!refusal.empty()) throw TrashFailure(refusal);
      const ExpectedItem found = session.trash().inspect(path);
      if (paths.insert(path).second) selection.items.push_back({{path, found}, {}});
    } catch (const TrashFailure& failure) {
      selection.refused.push_back({path, failure.what()});
    } catch (const std::system_error& failure) {
      selection.refused.push_back({path, failure.what()});
    }
  }
  for (Selected& each : selection.items) {
    each.isNested = isWithinAny(paths, each.item.path);
    if (each.isNested) continue;
    each.freed = Freed::of(session.platform, each.item.path, [] { return false; });
    selection.freed.add(each.freed);
  }
  return selection;
}

std::string described(const Selected& selected, const std::string& home) {
  const Freed::Total total = selected.freed.total();
  std::string text = fmt::format("{:>10}  {}", humanBytes(total.physical), shownPath(selected.item.path, home));
  if (selected.item.expected.type == EntryType::directory) text += fmt::format("/  ({})", counted(total.files, "file"));
  if (total.keptByLinks > 0) text += fmt::format("  ({} other hard links)", total.files == 1 ? "has" : "some have");
  return text + "\n";
}

/// True when the user agrees.
bool isAgreed(std::size_t count) {
  fmt::print(stderr, "Move {} to the trash? [y/N] ", counted(count, "item"));
  std::string answer;
  std::getline(std::cin, answer);
  answer = lowerCase(answer);
  return answer == "y" || answer == "yes";
}

void warnOf(const Failed& failure) {
  const std::string path = failure.path.empty() ? "\"\"" : displayText(failure.path);
  warn(fmt::format("cannot move {} to the trash: {}", path, displayText(failure.reason)));
}

Json toJson(const std::vector<Failed>& failures) {
  Json rows = Json::array();
  for (const Failed& failure : failures) {
    rows.push_back({{"path", encodeBytes(failure.path)}, {"reason", displayText(failure.reason)}});
  }
  return rows;
}

/// Where the question is asked: output may be redirected.
void printSelection(const Session& session, const Selection& selection, std::FILE* stream) {
  for (const Selected& each : selection.items) {
    if (!each.isNested) fmt::print(stream, "{}", described(each, session.homeShownAsTilde()));
  }
  if (selection.items.empty()) return;
  fmt::print(stream, "{:>10}  freed once the Trash is emptied\n", humanBytes(selection.freed.total().physical));
}

void printDryRun(const Session& session, const Command& command, const Selection& selection) {
  const std::uint64_t freed = selection.freed.total().physical;
  if (command.json) {
    Json rows = Json::array();
    for (const Selected& each : selection.items) {
      if (each.isNested) continue;
      rows.push_back({{"path", encodeBytes(each.item.path)}, {"freed", each.freed.total().physical}});
    }
    return printDocument(
        Json{{"items", std::move(rows)}, {"failed", toJson(selection.refused)}, {"freed", freed}});
  }
  printSelection(session, selection, stdout);
}

int move(Session& session, const Command& command, const Selection& selection) {
  std::vector<TrashItem> items;
  for (const Selected& each : selection.items) items.push_back(each.item);
  AppModel& model = session.model();
  TrashOutcome outcome;
  if (!items.empty()) {
    model.trash(std::move(items));
    try {
      session.runner().run([&] { session.await([&model] { return !model._trashing.get(); }); },
                           [&model] { model.cancelTrash(); });
    } catch (const Interrupted&) {
      // What was moved by then is to be told first.
    }
    if (!model._trashed.get()) throw CommandFailure(model._toast.get().value_or("trash failed"));
    outcome = *model._trashed.get();
  }
  for (const Failed& failure : outcome.failed) {
    warnOf(failure);
  }
  if (!command.json) {
    if (!outcome.moved.empty() || outcome.untried > 0) print(outcome.message() + "\n");
  } else {
    Json moved = Json::array();
    for (const TrashedItem& item : outcome.moved) {
      moved.push_back({{"path", encodeBytes(item.originalPath)}, {"trashedTo", encodeBytes(item.path)}});
    }
    std::vector<Failed> failures = selection.refused;
    failures.insert(failures.end(), outcome.failed.begin(), outcome.failed.end());
    printDocument(Json{{"items", std::move(moved)},
                       {"failed", toJson(failures)},
                       {"freed", outcome.freed.physical},
                       {"keptByLinks", outcome.freed.keptByLinks},
                       {"unreadable", outcome.freed.unreadable},
                       {"untried", outcome.untried}});
  }
  if (outcome.untried > 0) {
    (void)flushOutput();
    throw Interrupted();
  }
  return selection.refused.empty() && outcome.failed.empty() ? 0 : 1;
}

int listTrashes(Session& session, const Command& command) {
  Json trashes = Json::array();
  bool failed = false;
  for (const std::string& folder : session.trash().folders()) {
    const TrashFolder trash = session.trash().list(folder);
    if (!trash.failure.empty()) {
      warn(fmt::format("cannot list {}: {}", displayText(folder), trash.failure));
      failed = true;
    }
    Freed all;
    std::vector<std::pair<std::uint64_t, const TrashedItem*>> rows;
    for (const TrashedItem& item : trash.items) {
      const Freed freed = Freed::of(session.platform, item.path, [] { return false; });
      rows.emplace_back(freed.total().physical, &item);
      all.add(freed);
    }
    std::ranges::stable_sort(rows, std::ranges::greater(), &std::pair<std::uint64_t, const TrashedItem*>::first);
    const std::uint64_t total = all.total().physical;
    const std::string home = session.homeShownAsTilde();
    Json items = Json::array();
    if (!command.json) {
      print(fmt::format("{}  {}, {}\n", shownPath(folder, home), counted(rows.size(), "item"), humanBytes(total)));
    }
    for (const auto& [size, item] : rows) {
      if (command.json) {
        items.push_back({{"path", encodeBytes(item->path)},
                         {"originalPath", encodeBytes(item->originalPath)},
                         {"trashedAt", item->trashedAt},
                         {"freed", size}});
        continue;
      }
      const std::string when = item->trashedAt == 0 ? std::string(16, ' ') : localTime(static_cast<double>(item->trashedAt));
      const std::string& shown = item->originalPath.empty() ? item->path : item->originalPath;
      print(fmt::format("{:>10}  {}  {}\n", humanBytes(size), when, shownPath(shown, home)));
    }
    if (command.json) {
      trashes.push_back({{"path", encodeBytes(folder)}, {"items", std::move(items)}, {"freed", total}});
    } else {
      print("\n");
    }
  }
  if (command.json) {
    printDocument(Json{{"trashes", std::move(trashes)}});
  } else if (session.trash().folders().empty()) {
    print("There is no trash yet.\n");
  }
  return failed ? 1 : 0;
}

}  // namespace

int runTrash(Session& session, const Command& command) {
  if (command.listTrash) return listTrashes(session, command);
  const bool canAsk = ::isatty(STDIN_FILENO) != 0 && !command.json;
  if (!command.yes && !command.dryRun && !canAsk) {
    warn("trash asks before it moves anything: add --yes, or --dry-run to see what it would move");
    return kWrongUsage;
  }
  const Selection selection = select(session, command.items);
  for (const Failed& failure : selection.refused) {
    warnOf(failure);
  }
  const int refused = selection.refused.empty() ? 0 : 1;
  if (command.dryRun) {
    printDryRun(session, command, selection);
    return refused;
  }
  if (!command.yes && !selection.items.empty()) {
    printSelection(session, selection, stderr);
    const auto count = std::ranges::count(selection.items, false, &Selected::isNested);
    if (!isAgreed(static_cast<std::size_t>(count))) {
      print("Nothing was moved.\n");
      return refused;
    }
  }
  return move(session, command, selection);
}

}  // namespace quon::cli
