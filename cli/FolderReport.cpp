#include "FolderReport.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Text.h"

namespace quon::cli {

Json folderDocument(const Command& command, const std::string& path, const OpenedTree& tree,
                    std::span<const Entry> rows) {
  const DirNode& scope = *tree.scope;
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

RowTable tableOf(const Session& session, const Command& command, const OpenedTree& tree) {
  const DirNode& scope = *tree.scope;
  return {.metric = command.metric,
          .total = command.metric == Metric::logical ? scope.totalLogical : scope.totalPhysical,
          .columns = session.terminal.columns,
          .colour = session.terminal.colour};
}

}  // namespace quon::cli
