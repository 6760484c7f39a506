#include <chrono>
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "FolderReport.h"
#include "Output.h"
#include "RowTable.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "base/Text.h"

namespace quon::cli {
namespace {

/// Folders of a group that the table names; all of them stand in the document.
constexpr std::size_t kFoldersNamed = 5;

std::int64_t now() {
  return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
      .count();
}

/// A line of a table that stands for no folder or file.
Entry summaryRow(std::string name, std::uint64_t logical, std::uint64_t physical) {
  return {Entry::Rest(), std::move(name), logical, physical, "r:"};
}

Json document(const Kinds::Aggregate& kinds) {
  Json rows = Json::array();
  for (const Kinds::Row& row : kinds.rows) {
    rows.push_back({{"id", row.kind.id},
                    {"label", row.kind.label},
                    {"logical", row.logical},
                    {"physical", row.physical},
                    {"count", row.count}});
  }
  return {{"rows", std::move(rows)}, {"small", kinds.small}};
}

std::vector<Entry> folderRows(const Reclaim::Group& group, std::string_view rootPath) {
  std::vector<Entry> rows;
  for (const RefPtr<DirNode>& node : group.nodes) rows.push_back(Entry::ofFolder(node, node->path(rootPath)));
  return rows;
}

}  // namespace

int runKinds(Session& session, const Command& command) {
  AppModel& model = session.model();
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  const Kinds::Aggregate kinds = model.kindRows();
  if (command.json) {
    printDocument(document(kinds));
  } else {
    std::vector<Entry> rows;
    for (const Kinds::Row& row : kinds.rows) {
      const auto count = static_cast<std::uint64_t>(row.count);
      rows.push_back(
          summaryRow(fmt::format("{} — {} {}", row.kind.label, grouped(count), count == 1 ? "file" : "files"),
                     row.logical, row.physical));
    }
    const std::string keep = humanBytes(AppModel::minKeep);
    rows.push_back(summaryRow(fmt::format("small files < {} — unindexed", keep), kinds.small, kinds.small));
    print(heading(path, tree) + tableOf(session, command, tree).text(rows) +
          fmt::format("\nby extension + content sniff · only files ≥ {} are indexed\n", keep));
  }
  tellUnreadable(tree);
  return 0;
}

int runUntouched(Session& session, const Command& command) {
  AppModel& model = session.model();
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  model._ageCutoff.set(command.olderThan);
  model.scheduleAgeScan();
  session.runner().runUntil([&] { return !model._ageScanning.get(); });
  RowTable table = tableOf(session, command, tree);
  table.fullPaths = true;
  table.now = now();
  report(command, path, tree, model._ageHits.get().value_or(std::vector<Entry>()), table,
         "Nothing here is that old.");
  return 0;
}

int runReclaim(Session& session, const Command& command) {
  AppModel& model = session.model();
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  const std::vector<Reclaim::Group> groups = model.reclaimGroups(tree.scope);
  const std::string_view prefix = pathPrefix(tree.root);
  std::uint64_t total = 0;
  for (const Reclaim::Group& group : groups) total += group.total;
  if (command.json) {
    Json list = Json::array();
    for (const Reclaim::Group& group : groups) {
      list.push_back({{"label", group.rule.label},
                      {"why", group.rule.why},
                      {"total", group.total},
                      {"folders", toJson(folderRows(group, prefix))}});
    }
    printDocument(Json{{"groups", std::move(list)}, {"total", total}});
    tellUnreadable(tree);
    return 0;
  }
  RowTable table = tableOf(session, command, tree);
  table.fullPaths = true;
  print(heading(path, tree));
  for (const Reclaim::Group& group : groups) {
    print(fmt::format("{:>10}  {} — {}\n", humanBytes(group.total), group.rule.label, group.rule.why));
    std::vector<Entry> rows = folderRows(group, prefix);
    const std::size_t shown = std::min({rows.size(), kFoldersNamed, command.limit});
    const std::size_t more = rows.size() - shown;
    rows.resize(shown);
    print(table.text(rows));
    if (more > 0) print(fmt::format("            … and {} more\n", grouped(more)));
    print("\n");
  }
  print(groups.empty() ? "Nothing here is known to come back by itself.\n"
                       : fmt::format("{}  ≈ reclaimable under {}\n", humanBytes(total), displayText(path)));
  tellUnreadable(tree);
  return 0;
}

}  // namespace quon::cli
