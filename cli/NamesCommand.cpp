// Names, and the files of one name, from the saved index. All of them are read, sorted and cut here, so that
// it is known how many more there are.
#include <algorithm>
#include <fmt/format.h>
#include <functional>
#include <limits>
#include <vector>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "FolderReport.h"
#include "Output.h"
#include "RowTable.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Text.h"

namespace quon::cli {
namespace {

constexpr std::int64_t kAll = std::numeric_limits<std::int64_t>::max();
constexpr std::size_t kSizeColumns = 10;
constexpr std::size_t kCountColumns = 10;
constexpr std::size_t kGap = 2;

std::uint64_t sizeOf(const auto& row, Metric metric) {
  return metric == Metric::logical ? row.logical : row.physical;
}

/// The largest in the metric, largest first, and how many there were.
template <typename Row>
std::size_t keepLargest(std::vector<Row>& rows, const Command& command) {
  std::ranges::stable_sort(rows, std::greater<>(),
                           [&](const Row& row) { return sizeOf(row, command.metric); });
  const std::size_t found = rows.size();
  if (found > command.limit) rows.resize(command.limit);
  return found;
}

std::string line(const Session& session, std::uint64_t size, const std::string& count,
                 const std::string& name) {
  const std::size_t used = kSizeColumns + (count.empty() ? 0 : kCountColumns) + kGap;
  const std::size_t left = session.terminal.columns > used ? session.terminal.columns - used : 1;
  std::string text = fmt::format("{:>{}}", humanBytes(size), kSizeColumns);
  if (!count.empty()) text += fmt::format("{:>{}}", count, kCountColumns);
  return text + std::string(kGap, ' ') + fitToWidth(name, left) + "\n";
}

std::vector<RepeatedName> readNames(Session& session) {
  AppModel& model = session.model();
  model.options.namesCap = kAll;
  model.options.namesByMetric = true;
  session.show(Lens::names, model._namesLoading);
  if (model._namesError.get()) throw CommandFailure(*model._namesError.get());
  return model._names.get().value_or(std::vector<RepeatedName>());
}

void printNames(Session& session, const Command& command, const std::string& path, const OpenedTree& tree) {
  std::vector<RepeatedName> names = readNames(session);
  const std::size_t found = keepLargest(names, command);
  if (command.json) {
    Json rows = Json::array();
    for (const RepeatedName& name : names) {
      rows.push_back({{"name", encodeBytes(name.name)},
                      {"count", name.count},
                      {"logical", name.logical},
                      {"physical", name.physical}});
    }
    printDocument(Json{{"rows", std::move(rows)}, {"more", found - names.size()}});
    return;
  }
  const bool isLogical = command.metric == Metric::logical;
  print(fmt::format("{}: names of more than one file, by {}, as of {}\n\n",
                    shownPath(path, session.homeShownAsTilde()), isLogical ? "apparent size" : "size on disk",
                    localTime(tree.scannedAt)));
  const std::string least =
      humanBytes(AppModel::leastNameTotal) + (isLogical ? " or more in apparent size" : " or more on disk");
  for (const RepeatedName& name : names) {
    print(line(session, sizeOf(name, command.metric), grouped(static_cast<std::uint64_t>(name.count)) + " ×",
               displayText(name.name)));
  }
  print(lineForMore(found, names.size()));
  if (names.empty()) {
    print(fmt::format("No name of more than one file comes to {}.\n", least));
    return;
  }
  print(fmt::format(
      "\nThe same file name in more than one place, small files included, where the files come to\n"
      "{}. Their contents may differ; quon names --name NAME lists them.\n",
      least));
}

void printFilesOfName(Session& session, const Command& command) {
  AppModel& model = session.model();
  model.options.namedFilesCap = kAll;
  model._openName.set(command.name);
  session.show(Lens::names, model._filesOfNameLoading);
  if (model._namesError.get()) throw CommandFailure(*model._namesError.get());
  std::vector<NamedFile> files = model._filesOfName.get()->files;
  const std::size_t found = keepLargest(files, command);
  if (command.json) {
    Json rows = Json::array();
    for (const NamedFile& file : files) {
      rows.push_back({{"path", encodeBytes(file.path)},
                      {"logical", file.logical},
                      {"physical", file.physical},
                      {"mtime", file.mtime}});
    }
    printDocument(Json{{"files", std::move(rows)}, {"more", found - files.size()}});
    return;
  }
  for (const NamedFile& file : files) {
    print(line(session, sizeOf(file, command.metric), "", shownPath(file.path, session.homeShownAsTilde())));
  }
  print(lineForMore(found, files.size()));
  if (files.empty()) print("No file here has this name.\n");
}

}  // namespace

int runNames(Session& session, const Command& command) {
  session.model().options.searchScope = true;
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  if (tree.index.empty()) {
    throw CommandFailure("names are looked up in a saved index, and none could be saved");
  }
  if (command.name.empty()) {
    printNames(session, command, path, tree);
  } else {
    printFilesOfName(session, command);
  }
  reportUnreadable(tree);
  return 0;
}

}  // namespace quon::cli
