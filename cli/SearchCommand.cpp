#include <fmt/format.h>
#include <string>
#include <vector>

#include "Commands.h"
#include "FolderReport.h"
#include "Output.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "scan/KeptFiles.h"
#include "search/QueryAdvice.h"
#include "search/TokenQuery.h"

namespace quon::cli {
namespace {

Json toJson(const std::vector<IgnoredFilter>& ignored) {
  Json array = Json::array();
  for (const IgnoredFilter& filter : ignored) {
    array.push_back({{"token", encodeBytes(filter.token)}, {"reason", filter.reason}});
  }
  return array;
}

}  // namespace

int runSearch(Session& session, const Command& command) {
  AppModel& model = session.model();
  const std::vector<IgnoredFilter> ignored = ignoredFilters(command.text);
  for (const IgnoredFilter& filter : ignored) {
    warn(fmt::format("{} is ignored: {}", displayText(filter.token), filter.reason));
  }
  if (TokenQuery::parse(command.text, now()).isEmpty()) {
    warn("there is nothing to search for (see quon search --help)");
    return kWrongUsage;
  }
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  model.options.searchScope = true;
  model.options.searchCap = command.limit;
  model._query.set(command.text);
  session.await([&] { return !model._searching.get(); });
  const std::vector<Entry> rows = model._searchHits.get().value_or(std::vector<Entry>());
  const std::vector<std::string> hints =
      rows.empty() ? searchHints(command.text) : std::vector<std::string>();
  RowTable table = tableOf(session, command, tree);
  table.fullPaths = true;
  report(command, path, tree, table,
         {.rows = rows,
          .found = model._searchFound.get(),
          .whenNone = fmt::format("Nothing matches. Only folders, and files of {} or more, are searched.",
                                  humanBytes(kMinKeep))},
         {{"ignored", toJson(ignored)}, {"hints", hints}});
  for (const std::string& hint : hints) warn(hint);
  return 0;
}

}  // namespace quon::cli
