#include <fmt/format.h>

#include <nlohmann/json.hpp>

#include "Commands.h"
#include "FolderReport.h"
#include "Output.h"
#include "base/ByteJson.h"
#include "base/HumanBytes.h"
#include "base/Path.h"
#include "base/Text.h"
#include "platform/Files.h"
#include "rows/FolderRows.h"

namespace quon::cli {
namespace {

constexpr std::size_t kRowsShown = 12;

Json document(const OpenedTree& tree) {
  const DirNode& root = *tree.result->root;
  Json json{{"root", encodeBytes(tree.root)},
            {"dirs", root.totalDirs},
            {"files", root.totalFiles},
            {"logical", root.totalLogical},
            {"physical", root.totalPhysical},
            {"errors", tree.result->errorCount},
            {"errorSamples", toJson(tree.result->errorSamples)},
            {"errorReasons", tree.result->errorReasons},
            {"hardlinksDeduped", tree.result->hardlinksDeduped},
            {"skippedProtected", toJson(tree.result->skippedProtected)},
            {"elapsedMs", tree.elapsedMs},
            {"index", nullptr}};
  if (!tree.index.empty()) json["index"] = encodeBytes(tree.index);
  return json;
}

std::string summary(const Session& session, const OpenedTree& tree) {
  const DirNode& root = *tree.result->root;
  std::string text = fmt::format("{}: {}, in {:.2f} s\n", displayText(tree.root), totalsOf(root),
                                 static_cast<double>(tree.elapsedMs) / 1000.0);
  if (tree.result->hardlinksDeduped > 0) {
    text += counted(tree.result->hardlinksDeduped, "further name") + " of hard-linked files, counted once\n";
  }
  if (!tree.index.empty()) {
    std::error_code ignored;
    const auto facts = session.platform.files.facts(tree.index, ignored);
    text += fmt::format("index saved ({})\n", humanBytes(facts ? facts->logical : 0));
  }
  return text + "\n";
}

}  // namespace

int runScan(Session& session, const Command& command) {
  ModelOptions& options = session.model().options;
  options.threads = command.threads;
  options.oneFileSystem = !command.crossDevices;
  options.saveIndex = command.saveIndex;
  const OpenedTree tree = session.scan(session.resolve(command.path));
  if (command.json) {
    printDocument(document(tree));
  } else {
    print(summary(session, tree) +
          tableOf(session, command, tree)
              .text(scopeEntries(tree.scope, pathPrefix(tree.root), command.metric, kRowsShown)));
  }
  reportUnreadable(tree);
  const bool notSaved = command.saveIndex && tree.index.empty();
  return notSaved ? 1 : 0;
}

}  // namespace quon::cli
