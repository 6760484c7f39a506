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
  AppModel& model = session.model();
  std::vector<Entry> rows;
  std::size_t found = 0;
  if (largest) {
    model.options.largestCap = command.limit;
    session.show(Lens::largest, model._largestScanning);
    rows = model._largest.get().value_or(std::vector<Entry>());
    found = model._largestFound.get();
  } else {
    rows = model.scopeEntries(tree.scope, command.limit);
    found = rows.size();
  }
  report(whole, path, tree, rows, found, table,
         largest ? fmt::format("No file of {} or more.", humanBytes(AppModel::minKeep)) : "It is empty.");
  return 0;
}

}  // namespace quon::cli
