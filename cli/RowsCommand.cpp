#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"
#include "RowTable.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "base/Text.h"
#include "rows/FolderRows.h"
#include "scan/Walker.h"

namespace quon::cli {
namespace {

Json document(const Command& command, const std::string& path, const DirNode& scope,
              const std::vector<Entry>& rows) {
  return {{"path", encodeBytes(path)},     {"metric", nameOf(command.metric)},
          {"logical", scope.totalLogical}, {"physical", scope.totalPhysical},
          {"files", scope.totalFiles},     {"dirs", scope.totalDirs},
          {"rows", toJson(rows)}};
}

std::string heading(const std::string& path, const OpenedTree& tree) {
  const DirNode& scope = *tree.scope;
  return fmt::format("{}: {} files in {} folders, {} ({} on disk), as of {}\n\n", displayText(path),
                     grouped(scope.totalFiles), grouped(scope.totalDirs), humanBytes(scope.totalLogical),
                     humanBytes(scope.totalPhysical), localTime(tree.scannedAt));
}

}  // namespace

int runRows(Session& session, const Command& command) {
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  const bool largest = command.verb == Command::Verb::largest;
  const std::string_view prefix = pathPrefix(tree.root);
  const std::vector<Entry> rows = largest ? largestFiles(tree.scope, prefix, command.metric, command.limit)
                                          : scopeEntries(tree.scope, prefix, command.metric, command.limit);
  if (command.json) {
    printDocument(document(command, path, *tree.scope, rows));
    tellUnreadable(tree);
    return 0;
  }
  const DirNode& scope = *tree.scope;
  const RowTable table{.metric = command.metric,
                       .total = command.metric == Metric::logical ? scope.totalLogical : scope.totalPhysical,
                       .columns = session.terminal.columns,
                       .colour = session.terminal.colour,
                       .fullPaths = largest};
  print(heading(path, tree) + table.text(rows));
  if (largest && rows.empty()) print(fmt::format("No file of {} or more.\n", humanBytes(Walker::kMinKeep)));
  tellUnreadable(tree);
  return 0;
}

}  // namespace quon::cli
