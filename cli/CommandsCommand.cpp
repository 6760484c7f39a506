// The rows of the command bar: its commands, and the files of a saved index, which is read as it stands.
// Nothing is scanned and no index is caught up, so that the commands come at once.
#include <fmt/format.h>
#include <span>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"
#include "RowTable.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/RootPath.h"
#include "base/Text.h"
#include "lenses/Kinds.h"
#include "palette/PaletteCommand.h"
#include "search/TokenQuery.h"
#include "search/TreeSearch.h"
#include "store/IndexCatalog.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon::cli {
namespace {

/// The folders and files that match, largest first; none, with a line that says why, without an index that
/// contains the folder which commands work on.
std::vector<Entry> savedRows(const Session& session, const Command& command) {
  const TokenQuery query = TokenQuery::parse(command.text, now());
  if (query.isEmpty()) return {};
  const std::string path = session.resolve("");
  const auto index = IndexCatalog::nearest(session.platform, session.folders.index(), path);
  if (!index) {
    warn(fmt::format("files are not listed, because {} is in no saved index; quon scan saves one",
                     displayText(path)));
    return {};
  }
  try {
    const RootPath root(index->root);
    const Loaded loaded = ScanStore::load(index->url, root);
    const auto kindOf = [](const DirNode&, std::string_view name) -> std::string_view {
      return Kinds::of(name).id;
    };
    const auto never = [] { return false; };
    return search(query, loaded.result.root, root.prefix(), command.metric, kindOf, never,
                  AppModel::paletteCap)
        ->rows;
  } catch (const StoreError& failure) {
    warn(fmt::format("files are not listed: {}", failure.what()));
    return {};
  }
}

Json toJson(const PaletteCommand& command) {
  Json row{
      {"kind", "command"}, {"id", encodeBytes(command.id)}, {"title", command.title}, {"shortcut", nullptr}};
  if (command.shortcut) row["shortcut"] = *command.shortcut;
  return row;
}

std::string lineOf(const Entry& row, const Session& session, Metric metric) {
  constexpr std::size_t kBeforePath = 14;
  const std::size_t columns = session.terminal.columns;
  return fmt::format("{:>12}  {}\n", humanBytes(row.size(metric)),
                     fitToWidth(shownPath(row.path(), session.homeShownAsTilde()),
                                columns > kBeforePath ? columns - kBeforePath : 1));
}

}  // namespace

int runCommands(Session& session, const Command& command) {
  session.await([&] { return session.model().areSettingsStored(); });
  const std::vector<PaletteCommand> commands =
      matchedCommands(paletteCommands(session.model()), command.text);
  const std::vector<Entry> rows = savedRows(session, command);
  if (command.json) {
    Json all = Json::array();
    for (const PaletteCommand& each : commands) all.push_back(toJson(each));
    for (Json& row : toJson(rows)) all.push_back(std::move(row));
    printDocument(Json{{"rows", std::move(all)}});
    return 0;
  }
  for (const PaletteCommand& each : commands) {
    print(fmt::format("{:<14}{}\n", shownShortcut(each.shortcut.value_or("")), each.title));
  }
  for (const Entry& row : rows) print(lineOf(row, session, command.metric));
  if (commands.empty() && rows.empty()) print("Nothing matches.\n");
  return 0;
}

}  // namespace quon::cli
