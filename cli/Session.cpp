#include "Session.h"

#include <fmt/format.h>
#include <system_error>
#include <utility>

#include "Output.h"
#include "base/Path.h"
#include "base/Text.h"
#include "model/FolderRows.h"
#include "platform/Files.h"
#include "platform_linux/KeyFileDefaults.h"
#include "scan/Walker.h"
#include "store/IndexCatalog.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"

namespace quon::cli {
namespace {

std::string reasonOf(const std::error_code& error) {
  if (error == std::errc::no_such_file_or_directory) return "no such folder";
  if (error == std::errc::permission_denied) return "permission denied";
  return error.message();
}

}  // namespace

void warn(const std::string& line) {
  fmt::print(stderr, "quon: {}\n", line);
}

Session::Session(const Platform& services, Folders places, const Terminal& streams)
    : platform(services), folders(std::move(places)), terminal(streams), runner(services, streams) {}

std::string Session::resolve(const std::string& typed) const {
  std::string path = typed;
  if (path.empty()) path = KeyFileDefaults(folders.config).text("root").value_or(folders.home);
  path = expandTilde(path, folders.home);
  const auto refuse = [&](const std::string& reason) {
    throw CommandFailure("cannot open " + displayText(path) + ": " + reason);
  };
  std::error_code error;
  const auto canonical = platform.files.canonical(path, error);
  if (!canonical) refuse(reasonOf(error));
  const auto facts = platform.files.facts(*canonical, error);
  if (!facts) refuse(reasonOf(error));
  if (!facts->isDirectory) refuse("not a folder");
  error = platform.files.readable(*canonical);
  if (error) refuse(reasonOf(error));
  return *canonical;
}

OpenedTree Session::open(const std::string& path) {
  const std::vector<IndexEntry> saved = IndexCatalog::list(platform, folders.index());
  FolderScan::Options options{.root = path};
  if (const IndexEntry* nearest = IndexCatalog::nearest(saved, path)) {
    try {
      Loaded loaded = ScanStore::load(nearest->url, nearest->root, Walker::kMinKeep);
      OpenedTree tree{.result = std::move(loaded.result),
                      .root = nearest->root,
                      .scope = nullptr,
                      .index = nearest->url,
                      .scannedAt = loaded.scannedAt,
                      .elapsedMs = loaded.scanElapsedMs};
      tree.scope = folderAt(tree.result.root, *relativeTo(path, tree.root));
      if (tree.scope) return tree;
      // Made since that scan, or on another file system.
    } catch (const StoreError& reason) {
      warn(fmt::format("{}; scanning {} afresh", reason.what(), displayText(nearest->root)));
      options.root = nearest->root;
    }
  }
  OpenedTree tree = scan(options);
  tree.scope = folderAt(tree.result.root, *relativeTo(path, tree.root));
  if (!tree.scope) throw CommandFailure("cannot open " + displayText(path) + ": the scan did not meet it");
  return tree;
}

OpenedTree Session::scan(FolderScan::Options options) {
  options.indexDirectory = folders.index();
  FolderScan::Outcome outcome = runner.run(options);
  if (!outcome.notSaved.empty()) warn("the index was not saved: " + outcome.notSaved);
  OpenedTree tree{.result = std::move(outcome.result),
                  .root = options.root,
                  .scope = nullptr,
                  .index = std::move(outcome.index),
                  .scannedAt = outcome.scannedAt,
                  .elapsedMs = outcome.elapsedMs};
  tree.scope = tree.result.root;
  return tree;
}

}  // namespace quon::cli
