#include <fmt/format.h>
#include <set>
#include <string>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"
#include "base/ByteJson.h"
#include "base/Text.h"
#include "store/IndexCatalog.h"

namespace quon::cli {

/// Quiet, since a service runs it: only what fails is printed.
int runRefresh(Session& session, const Command& command) {
  AppModel& model = session.model();
  model.options.catchUp = true;
  model.options.waitsForRecorder = true;
  std::set<std::string> roots;
  for (const IndexEntry& entry : IndexCatalog::list(session.platform, session.folders.index())) {
    if (entry.status == IndexEntry::Status::live) roots.insert(entry.root);
  }
  Json rows = Json::array();
  bool failed = false;
  for (const std::string& root : roots) {
    model.open(root);
    session.runner().wait();
    const AppModel::LastRun& run = model.lastRun;
    const std::string& reason = run.failure.empty() ? run.notSaved : run.failure;
    if (!reason.empty()) {
      failed = true;
      warn(fmt::format("cannot refresh the index of {}: {}", displayText(root), reason));
    }
    rows.push_back({{"root", encodeBytes(root)},
                    {"caughtUp", run.caughtUp},
                    {"scanned", !run.wasLoaded},
                    {"failure", reason.empty() ? Json() : Json(reason)}});
  }
  if (command.json) printDocument(Json{{"rows", std::move(rows)}});
  return failed ? 1 : 0;
}

}  // namespace quon::cli
