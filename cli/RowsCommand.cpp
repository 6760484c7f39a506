#include <fmt/format.h>

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
  RowTable table = tableOf(session, command, tree);
  table.fullPaths = largest;
  // The rest of a folder is a row of its own, beyond the limit.
  Command whole = command;
  if (!largest) ++whole.limit;
  const std::vector<Entry> rows =
      largest ? largestFiles(tree.scope, pathPrefix(tree.root), command.metric, command.limit)
              : session.model().scopeEntries(tree.scope, command.limit);
  report(whole, path, tree, rows, rows.size(), table,
         largest ? fmt::format("No file of {} or more.", humanBytes(AppModel::minKeep)) : "It is empty.");
  return 0;
}

}  // namespace quon::cli
