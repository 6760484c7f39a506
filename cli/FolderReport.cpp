#include "FolderReport.h"

#include <algorithm>
#include <fmt/format.h>
#include <span>

#include <nlohmann/json.hpp>

#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Text.h"

namespace quon::cli {

namespace {

Json documentOf(const Command& command, const std::string& path, const OpenedTree& tree,
                std::span<const Entry> rows) {
  const DirNode& scope = *tree.scope;
  return {{"path", encodeBytes(path)},     {"metric", nameOf(command.metric)},
          {"logical", scope.totalLogical}, {"physical", scope.totalPhysical},
          {"files", scope.totalFiles},     {"dirs", scope.totalDirs},
          {"rows", toJson(rows)}};
}

}  // namespace

void report(const Command& command, const std::string& path, const OpenedTree& tree,
            std::span<const Entry> rows, std::size_t found, const RowTable& table,
            const std::string& whenNone, const std::string& footer) {
  rows = rows.first(std::min(rows.size(), command.limit));
  if (command.json) {
    printDocument(documentOf(command, path, tree, rows));
  } else {
    print(heading(path, tree, table) + table.text(rows));
    if (found == 0) print(whenNone + "\n");
    if (found > rows.size()) print(fmt::format("… and {} more\n", grouped(found - rows.size())));
    if (found > 0 && !footer.empty()) print("\n" + footer + "\n");
  }
  tellUnreadable(tree);
}

std::string heading(const std::string& path, const OpenedTree& tree, const RowTable& table) {
  return fmt::format("{}: {}, as of {}\n\n", table.shown(path), totalsOf(*tree.scope),
                     localTime(tree.scannedAt));
}

std::string totalsOf(const DirNode& folder) {
  return fmt::format("{}, {}, {} ({} on disk)", counted(folder.totalFiles, "file"),
                     counted(folder.totalDirs, "folder"), humanBytes(folder.totalLogical),
                     humanBytes(folder.totalPhysical));
}

RowTable tableOf(const Session& session, const Command& command, const OpenedTree& tree) {
  const DirNode& scope = *tree.scope;
  return {.metric = command.metric,
          .total = command.metric == Metric::logical ? scope.totalLogical : scope.totalPhysical,
          .columns = session.terminal.columns,
          .colour = session.terminal.colour,
          .home = session.homeShownAsTilde()};
}

}  // namespace quon::cli
