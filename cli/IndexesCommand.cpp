#include <cmath>
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "store/IndexCatalog.h"

namespace quon::cli {
namespace {

const char* nameOf(IndexEntry::Status status) {
  switch (status) {
    case IndexEntry::Status::live:
      return "live";
    case IndexEntry::Status::offline:
      return "offline";
    case IndexEntry::Status::orphaned:
      return "orphaned";
    case IndexEntry::Status::unusable:
      return "unusable";
  }
  return "unusable";
}

Json toJson(const IndexEntry& entry) {
  return {{"root", encodeBytes(entry.root)},
          {"url", encodeBytes(entry.url)},
          {"bytes", entry.bytes},
          {"scannedAt", static_cast<std::int64_t>(std::floor(entry.scannedAt))},
          {"status", nameOf(entry.status)},
          {"covered", entry.covered}};
}

std::string line(const IndexEntry& entry) {
  const std::string when = entry.scannedAt > 0 ? localTime(entry.scannedAt) : std::string(16, ' ');
  const std::string what = entry.root.empty() ? entry.url : entry.root;
  return fmt::format("{}  {:>10}  {:<8}  {}{}\n", when, humanBytes(entry.bytes), nameOf(entry.status),
                     displayText(what), entry.covered ? "  (within another index)" : "");
}

}  // namespace

int runIndexes(Session& session, const Command& command) {
  if (command.collect) {
    const IndexCatalog::Collected collected =
        IndexCatalog::collectGarbage(session.platform, session.folders.index());
    if (!command.json && collected.bytes > 0) {
      print(fmt::format("reclaimed {} — {} stale {}\n\n", humanBytes(collected.bytes), collected.indexes,
                        collected.indexes == 1 ? "index" : "indexes"));
    }
  }
  const std::vector<IndexEntry> entries = IndexCatalog::list(session.platform, session.folders.index());
  if (command.json) {
    Json rows = Json::array();
    for (const IndexEntry& entry : entries) rows.push_back(toJson(entry));
    printDocument(Json{{"rows", std::move(rows)}});
    return 0;
  }
  for (const IndexEntry& entry : entries) print(line(entry));
  if (entries.empty()) print("No saved index yet: quon scan makes one.\n");
  return 0;
}

}  // namespace quon::cli
