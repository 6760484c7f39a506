#include <fmt/format.h>
#include <vector>

#include "Commands.h"
#include "FolderReport.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "rows/FolderRows.h"
#include "scan/KeptFiles.h"

namespace quon::cli {
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
  AppModel& model = session.model();
  model.options.largestCap = command.limit;
  session.show(Lens::largest, model._largestScanning);
  const std::vector<Entry> rows = model._largest.get().value_or(std::vector<Entry>());
  RowTable table = tableOf(session, command, tree);
  table.fullPaths = true;
  report(command, path, tree, table,
         {.rows = rows,
          .found = model._largestFound.get(),
          .whenNone = fmt::format("No file here is {} or larger.", humanBytes(kMinKeep))});
  return 0;
}

}  // namespace quon::cli
