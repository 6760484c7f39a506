#include <algorithm>
#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "Output.h"
#include "RowTable.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "base/Text.h"

namespace quon::cli {
namespace {

constexpr std::size_t kSizeColumns = 10;
constexpr std::size_t kCountColumns = 10;
constexpr std::size_t kGap = 2;

std::string row(const Session& session, std::uint64_t size, const std::string& count,
                const std::string& name) {
  const std::size_t used = kSizeColumns + (count.empty() ? 0 : kCountColumns) + kGap;
  const std::size_t left = session.terminal.columns > used ? session.terminal.columns - used : 1;
  std::string text = fmt::format("{:>{}}", humanBytes(size), kSizeColumns);
  if (!count.empty()) text += fmt::format("{:>{}}", count, kCountColumns);
  return text + std::string(kGap, ' ') + fitToWidth(name, left) + "\n";
}

void printNames(Session& session, const Command& command, const std::string& path, const OpenedTree& tree) {
  AppModel& model = session.model();
  model.options.namesCap = static_cast<std::int64_t>(command.limit);
  session.show(Lens::names, model._namesLoading);
  if (model._namesError.get()) throw CommandFailure(*model._namesError.get());
  const std::vector<RepeatedName> names = model._names.get().value_or(std::vector<RepeatedName>());
  if (command.json) {
    Json rows = Json::array();
    for (const RepeatedName& name : names) {
      rows.push_back({{"name", encodeBytes(name.name)},
                      {"count", name.count},
                      {"logical", name.logical},
                      {"physical", name.physical}});
    }
    printDocument(Json{{"rows", std::move(rows)}});
    return;
  }
  print(fmt::format("{}: names of more than one file, by size on disk, as of {}\n\n",
                    shownPath(path, session.homeShownAsTilde()), localTime(tree.scannedAt)));
  for (const RepeatedName& name : names) {
    print(row(session, name.physical, grouped(static_cast<std::uint64_t>(name.count)) + " ×",
              displayText(name.name)));
  }
  if (names.empty())
    print(fmt::format("No repeated name takes {} or more.\n", humanBytes(AppModel::leastNameTotal)));
  print(
      "\nthe same file name in more than one place — includes small files no other lens indexes.\n"
      "Not necessarily identical content: the Dupes lens verifies that.\n");
}

void printFilesOfName(Session& session, const Command& command) {
  AppModel& model = session.model();
  model.options.namedFilesCap = static_cast<std::int64_t>(command.limit);
  model._openName.set(command.name);
  session.show(Lens::names, model._filesOfNameLoading);
  if (model._namesError.get()) throw CommandFailure(*model._namesError.get());
  const std::vector<NamedFile>& files = model._filesOfName.get()->files;
  if (command.json) {
    Json rows = Json::array();
    for (const NamedFile& file : files) {
      rows.push_back({{"path", encodeBytes(file.path)},
                      {"logical", file.logical},
                      {"physical", file.physical},
                      {"mtime", file.mtime}});
    }
    printDocument(Json{{"files", std::move(rows)}});
    return;
  }
  for (const NamedFile& file : files)
    print(row(session, file.physical, "", shownPath(file.path, session.homeShownAsTilde())));
  if (files.empty()) print("No file of that name.\n");
}

}  // namespace

int runNames(Session& session, const Command& command) {
  session.model().options.searchScope = true;
  const std::string path = session.resolve(command.path);
  const OpenedTree tree = session.open(path);
  if (tree.index.empty())
    throw CommandFailure("names are looked up in a saved index, and none could be saved");
  if (command.name.empty()) {
    printNames(session, command, path, tree);
  } else {
    printFilesOfName(session, command);
  }
  tellUnreadable(tree);
  return 0;
}

}  // namespace quon::cli
