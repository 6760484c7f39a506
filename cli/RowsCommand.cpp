#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "FolderReport.h"
#include "Output.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "rows/FolderRows.h"

namespace quon::cli {

int runRows(Session& session, const Command& command) {
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  const bool largest = command.verb == Command::Verb::largest;
  const std::vector<Entry> rows =
      largest ? largestFiles(tree.scope, pathPrefix(tree.root), command.metric, command.limit)
              : session.model().scopeEntries(tree.scope, command.limit);
  if (command.json) {
    printDocument(folderDocument(command, path, tree, rows));
  } else {
    RowTable table = tableOf(session, command, tree);
    table.fullPaths = largest;
    print(heading(path, tree) + table.text(rows));
    if (largest && rows.empty())
      print(fmt::format("No file of {} or more.\n", humanBytes(AppModel::minKeep)));
  }
  tellUnreadable(tree);
  return 0;
}

}  // namespace quon::cli
