#include <fmt/format.h>
#include <vector>

#include "Commands.h"
#include "FolderReport.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "rows/FolderRows.h"
#include "scan/KeptFiles.h"

namespace quon::cli {
namespace {

std::size_t keptFilesBelow(const DirNode& top) {
  std::size_t count = 0;
  std::vector<const DirNode*> folders{&top};
  while (!folders.empty()) {
    const DirNode& folder = *folders.back();
    folders.pop_back();
    count += folder.keptFiles.size();
    for (const RefPtr<DirNode>& child : folder.subdirs) folders.push_back(child.get());
  }
  return count;
}

}  // namespace

int runList(Session& session, const Command& command) {
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  const std::vector<Entry> rows = session.model().scopeEntries(tree.scope, command.limit);
  report(command, path, tree, tableOf(session, command, tree),
         {.rows = rows, .found = std::nullopt, .whenNone = "This folder is empty."});
  return 0;
}

int runLargest(Session& session, const Command& command) {
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  const std::vector<Entry> rows =
      largestFiles(tree.scope, pathPrefix(tree.root), command.metric, command.limit);
  RowTable table = tableOf(session, command, tree);
  table.fullPaths = true;
  report(command, path, tree, table,
         {.rows = rows,
          .found = keptFilesBelow(*tree.scope),
          .whenNone = fmt::format("No file here is {} or larger.", humanBytes(kMinKeep))});
  return 0;
}

}  // namespace quon::cli
