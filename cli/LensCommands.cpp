#include <algorithm>
#include <fmt/format.h>
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
#include "lenses/Age.h"
#include "scan/KeptFiles.h"

namespace quon::cli {
namespace {

constexpr std::size_t kCountColumns = 13;  // "999,999 files"
/// Folders of a group that the table names; a document contains all of them.
constexpr std::size_t kFoldersNamed = 5;

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

/// The group, and the largest of its folders.
std::string textOf(const Reclaim::Group& group, const RowTable& table, std::string_view rootPath,
                   std::size_t limit) {
  std::string text = table.line(group.total, "", fmt::format("{} — {}", group.rule.label, group.rule.why),
                                RowTable::Style::heading);
  const std::size_t shown = std::min({group.nodes.size(), kFoldersNamed, limit});
  for (std::size_t at = 0; at < shown; ++at) {
    const DirNode& folder = *group.nodes[at];
    const std::uint64_t size = table.metric == Metric::logical ? folder.totalLogical : folder.totalPhysical;
    text += table.part(group.nodes.size() == 1 ? "" : humanBytes(size), table.shown(folder.path(rootPath)),
                       RowTable::Style::folder);
  }
  const std::size_t more = group.nodes.size() - shown;
  if (more > 0) text += table.part("", fmt::format("… and {} more", grouped(more)), RowTable::Style::dim);
  return text;
}

}  // namespace

int runKinds(Session& session, const Command& command) {
  AppModel& model = session.model();
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  session.show(Lens::kinds, model._kindsScanning);
  const Kinds::Aggregate kinds = model._kinds.get().value_or(Kinds::Aggregate());
  if (command.json) {
    printDocument(document(kinds));
  } else {
    RowTable table = tableOf(session, command, tree);
    table.extraColumns = kCountColumns;
    print(heading(path, tree, table));
    for (const Kinds::Row& row : kinds.rows) {
      print(table.line(command.metric == Metric::logical ? row.logical : row.physical,
                       counted(static_cast<std::uint64_t>(row.count), "file"), row.kind.label,
                       RowTable::Style::plain));
    }
    const std::string keep = humanBytes(kMinKeep);
    print(table.line(kinds.small, "unindexed", "small files < " + keep, RowTable::Style::dim));
    print(fmt::format("\nby extension · only files ≥ {} are indexed\n", keep));
  }
  reportUnreadable(tree);
  return 0;
}

int runUntouched(Session& session, const Command& command) {
  AppModel& model = session.model();
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  model._ageCutoff.set(command.olderThan);
  session.show(Lens::age, model._ageScanning);
  RowTable table = tableOf(session, command, tree);
  table.fullPaths = true;
  table.now = now();
  const auto& hits = model._ageHits.get();
  const std::span<const Entry> all = hits ? std::span<const Entry>(*hits) : std::span<const Entry>();
  std::uint64_t total = 0;
  for (const Entry& row : all) total += row.size(command.metric);
  const std::string footer = fmt::format(
      "{:>10}  unchanged for {} or longer, not counting files < {} in folders that changed since",
      humanBytes(total), humanAge(table.now - command.olderThan, table.now), humanBytes(kMinKeep));
  report(command, path, tree, table,
         {.rows = all.first(std::min(all.size(), command.limit)),
          .found = all.size(),
          .whenNone = "Nothing here is that old.",
          .footer = footer});
  return 0;
}

int runReclaim(Session& session, const Command& command) {
  AppModel& model = session.model();
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  session.show(Lens::reclaim, model._reclaimScanning);
  const std::vector<Reclaim::Group> groups = model._reclaim.get().value_or(std::vector<Reclaim::Group>());
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
    reportUnreadable(tree);
    return 0;
  }
  RowTable table = tableOf(session, command, tree);
  table.fullPaths = true;
  print(heading(path, tree, table));
  for (const Reclaim::Group& group : groups) print(textOf(group, table, prefix, command.limit));
  print(groups.empty()
            ? "No folder here is known to be made again by itself.\n"
            : fmt::format("\n{:>10}  ≈ reclaimable under {}\n", humanBytes(total), table.shown(path)));
  reportUnreadable(tree);
  return 0;
}

}  // namespace quon::cli
