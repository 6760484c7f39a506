#include "FolderReport.h"

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

void report(const Command& command, const std::string& path, const OpenedTree& tree, std::vector<Entry> rows,
            const RowTable& table, const std::string& whenNone) {
  const std::size_t found = rows.size();
  if (found > command.limit) rows.resize(command.limit);
  if (command.json) {
    printDocument(documentOf(command, path, tree, rows));
  } else {
    print(heading(path, tree) + table.text(rows));
    if (rows.empty()) print(whenNone + "\n");
    if (found > rows.size()) print(fmt::format("… and {} more\n", grouped(found - rows.size())));
  }
  tellUnreadable(tree);
}

std::string heading(const std::string& path, const OpenedTree& tree) {
  const DirNode& scope = *tree.scope;
  return fmt::format("{}: {} files in {} folders, {} ({} on disk), as of {}\n\n", displayText(path),
                     grouped(scope.totalFiles), grouped(scope.totalDirs), humanBytes(scope.totalLogical),
                     humanBytes(scope.totalPhysical), localTime(tree.scannedAt));
}

RowTable tableOf(const Session& session, const Command& command, const OpenedTree& tree) {
  const DirNode& scope = *tree.scope;
  return {.metric = command.metric,
          .total = command.metric == Metric::logical ? scope.totalLogical : scope.totalPhysical,
          .columns = session.terminal.columns,
          .colour = session.terminal.colour};
}

}  // namespace quon::cli
