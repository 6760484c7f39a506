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

void report(const Command& command, const std::string& path, const OpenedTree& tree, const RowTable& table,
            const Listing& listing, const Json& more) {
  const std::size_t found = listing.found.value_or(listing.rows.size());
  if (command.json) {
    Json document = documentOf(command, path, tree, listing.rows);
    if (listing.found) document["more"] = found - listing.rows.size();
    document.update(more);
    printDocument(document);
  } else {
    print(heading(path, tree, table) + table.text(listing.rows) + lineForMore(found, listing.rows.size()));
    if (found == 0) print(listing.whenNone + "\n");
    if (found > 0 && !listing.footer.empty()) print("\n" + listing.footer + "\n");
  }
  reportUnreadable(tree);
}

std::string lineForMore(std::size_t found, std::size_t listed) {
  return found > listed ? fmt::format("… and {} more\n", grouped(found - listed)) : std::string();
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
