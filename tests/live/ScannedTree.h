#pragma once

#include <cstdint>
#include <gtest/gtest.h>
#include <string>

#include "live/Refresh.h"
#include "live/ScanPatcher.h"
#include "platform/Files.h"
#include "store/FolderScan.h"
#include "store/ScanStore.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {

constexpr std::uint64_t kMinKeep = 1048576;

/// A folder to edit, and indexes of it in a folder of their own.
class ScannedTree : public testing::Test {
 protected:
  /// Scans the tree into the index of that name; its path.
  std::string scan(const std::string& name) {
    FolderScan run(platform, {.root = root, .indexDirectory = work.folder(name)});
    const FolderScan::Outcome outcome = run.run();
    EXPECT_EQ(outcome.notSaved, "");
    return outcome.index;
  }

  Loaded load(const std::string& index) { return ScanStore::load(index, root, kMinKeep); }

  [[nodiscard]] Refresh::Scope scope() const {
    std::error_code error;
    return {root, platform.files.facts(root, error).value().device, kMinKeep, {}};
  }

  /// Applies one batch to an index, seeing the tree through these services.
  void patch(const Platform& seen, const std::string& index, const Refresh::Changes& changes,
             std::uint64_t eventId) {
    ScanPatcher patcher(index, root);
    const Refresh::Batch batch = Refresh::prepare(seen, changes, patcher, scope());
    Refresh::commitStore(batch, patcher);
    patcher.commit(eventId, 1.5);
  }

  const Platform& platform = linuxPlatform();
  const TempFolder work;
  const TempFolder tree;
  const std::string root = tree.path;
};

}  // namespace quon::test
