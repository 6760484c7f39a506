#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

#include "live/Refresh.h"
#include "platform/Files.h"
#include "store/FolderScan.h"
#include "store/IndexedRoot.h"
#include "store/ScanPatcher.h"
#include "store/ScanStore.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {

/// A folder to edit, with its indexes in a folder of their own.
class ScannedTree : public testing::Test {
 protected:
  /// Scans the tree into the index of that name; its path.
  std::string scan(const std::string& name) { return scan(name, platform, 0); }
  /// The same, seeing the tree through these services; `threads` as of a scan.
  std::string scan(const std::string& name, const Platform& seen, unsigned threads) {
    FolderScan run(seen, {.root = rootPath, .threads = threads, .indexDirectory = work.folder(name)});
    const FolderScan::Outcome outcome = run.run();
    EXPECT_EQ(outcome.notSaved, "");
    return outcome.index;
  }

  Loaded load(const std::string& index) { return ScanStore::load(index, rootPath); }

  [[nodiscard]] IndexedRoot indexed(const std::string& index) const {
    std::error_code error;
    return {.root = rootPath, .indexURL = index, .rootDev = platform.files.facts(root, error).value().device};
  }

  /// Applies one batch to an index, seeing the tree through these services.
  void patch(const Platform& seen, const std::string& index, const Refresh::Changes& changes,
             std::uint64_t eventId) {
    ScanPatcher patcher(index, rootPath);
    const Refresh::Batch batch = Refresh::prepare(seen, changes, patcher, indexed(index));
    patcher.begin(patcher.revision());
    Refresh::commitStore(batch, patcher);
    patcher.commit(eventId, 1.5);
  }

  const Platform& platform = linuxPlatform();
  const TempFolder work;
  const TempFolder tree;
  const std::string root = tree.path;
  const RootPath rootPath{root};
};

}  // namespace quon::test
