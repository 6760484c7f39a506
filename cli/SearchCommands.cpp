#include <algorithm>
#include <fmt/format.h>
#include <iterator>
#include <span>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "FolderReport.h"
#include "Output.h"
#include "RowTable.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "base/Text.h"
#include "palette/PaletteCommand.h"
#include "search/TokenQuery.h"

namespace quon::cli {
namespace {

/// What a filter is missing that the search left out, since its value cannot be read.
void tellIgnoredFilters(const std::string& text) {
  for (const std::string& token : ignoredFilters(text)) {
    warn("left out, for its value cannot be read: " + displayText(token));
  }
}

}  // namespace

int runSearch(Session& session, const Command& command) {
  AppModel& model = session.model();
  const std::string path = session.resolve(command.path);
  tellIgnoredFilters(command.text);
  const OpenedTree tree = session.open(path);
  model.options.searchScope = true;
  model.options.searchCap = command.limit;
  model._query.set(command.text);
  session.runner().runUntil([&] { return !model._searching.get(); });
  const std::vector<Entry> rows = model._searchHits.get().value_or(std::vector<Entry>());
  RowTable table = tableOf(session, command, tree);
  table.fullPaths = true;
  report(command, path, tree, rows, model._searchFound.get(), table,
         fmt::format("Nothing matches. Only folders, and files of {} or more, are searched.",
                     humanBytes(AppModel::minKeep)));
  return 0;
}

int runCommands(Session& session, const Command& command) {
  AppModel& model = session.model();
  const OpenedTree tree = session.open(session.resolve(""));
  model.schedulePaletteSearch(command.text);
  session.runner().runUntil([&] { return !model._paletteSearching.get(); });
  Json rows = Json::array();
  for (const PaletteRow& row : paletteRows(model, command.text)) {
    if (const auto* action = std::get_if<PaletteCommand>(&row)) {
      if (command.json) {
        Json item{{"kind", "command"},
                  {"id", encodeBytes(action->id)},
                  {"title", action->title},
                  {"shortcut", nullptr}};
        if (action->shortcut) item["shortcut"] = *action->shortcut;
        rows.push_back(std::move(item));
      } else {
        print(fmt::format("{:<14}{}\n", shownShortcut(action->shortcut.value_or("")), action->title));
      }
    } else {
      const Entry& file = std::get<Entry>(row);
      if (command.json) {
        rows.push_back(toJson(std::span(&file, 1)).front());
      } else {
        print(fmt::format("{:>10}  {}\n", humanBytes(file.size(command.metric)),
                          fitToWidth(shownPath(file.path(), session.homeShownAsTilde()),
                                     session.terminal.columns > 13 ? session.terminal.columns - 13 : 1)));
      }
    }
  }
  if (command.json) printDocument(Json{{"rows", std::move(rows)}});
  return 0;
}

}  // namespace quon::cli
