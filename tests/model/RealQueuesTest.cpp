// The model on real queues: searches and lenses read the tree in the background while live batches change it.
#include <chrono>
#include <gtest/gtest.h>
#include <map>
#include <string>

#include "linux_desktop/LinuxTrash.h"
#include "ModelHome.h"
#include "base/LoopQueue.h"
#include "base/ThreadQueue.h"

namespace quon::test {
namespace {

constexpr std::uint64_t kMiB = 1048576;
constexpr int kBatches = 3;

TEST(RealQueues, SearchesAndLensesStayRightBesideBatches) {
  TempFolder top;
  const std::string root = top.folder("tree");
  for (int folder = 0; folder < 200; ++folder) {
    top.file("tree/" + std::to_string(folder % 10) + "/" + std::to_string(folder) + "/film.mp4", kMiB);
  }
  const LinuxPlatform platform;
  FakeEvents events;
  MemoryDefaults defaults;
  RecordingDesktop desktop;
  FakeVolumes volumes;
  RememberedLog log;
  LinuxTrash trash(top.at("home"), 0);
  LoopQueue main;
  std::map<std::string, ThreadQueue, std::less<>> queues;
  AppModel model(ModelServices{
      platform.services(), events, defaults, desktop, volumes, log, trash,
      Folders{.home = top.path, .data = top.at("data"), .config = top.at("config"), .state = top.at("state")},
      main, [&](std::string_view name) -> BackgroundQueue& { return queues[std::string(name)]; },
      [] { return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()); },
      [] { return std::int64_t{2'000'000'000}; }});
  model.options.typingPauses = false;
  model.options.searchScope = true;
  model._lens.set(Lens::largest);
  model.scan(root);
  ASSERT_TRUE(main.runUntil([&] { return !model.isBusy() && !model.isLiveStarting(); }));
  ASSERT_TRUE(model._isLive.get());

  int searched = 0;
  for (int batch = 1; batch <= kBatches; ++batch) {
    const std::string changed = root + "/" + std::to_string(batch);
    model._scope.set(
        std::get<RefPtr<DirNode>>(model.entryFor(changed + "/1" + std::to_string(batch))->payload));
    top.file("tree/" + std::to_string(batch) + "/new/film.mp4", kMiB);
    // The ancestor of the scope that is searched is replaced as a whole.
    events.push({{changed, EventFlag::mustScanSubdirs, static_cast<std::uint64_t>(batch)}});
    while (model._version.get() < static_cast<std::uint64_t>(batch)) {
      model._query.set("film " + std::to_string(searched++ % 10));
      model.scheduleAgeScan();
      ASSERT_TRUE(main.runUntil([&] {
        return !model._searching.get() && !model._ageScanning.get() && !model._largestScanning.get();
      }));
      ASSERT_TRUE(model._searchHits.get());
      for (const Entry& row : *model._searchHits.get()) EXPECT_TRUE(row.path().starts_with(changed));
    }
    EXPECT_EQ(model._result.get()->root->totalFiles, 200U + static_cast<std::uint64_t>(batch));
  }
  model._scope.set(model._result.get()->root);
  model._query.set("film");
  ASSERT_TRUE(main.runUntil([&] { return !model._searching.get() && !model._largestScanning.get(); }));
  EXPECT_EQ(model._searchHits.get()->size(), 200U + kBatches);
  EXPECT_EQ(model._largestFound.get(), 200U + kBatches);
  EXPECT_GT(searched, kBatches);
}

}  // namespace
}  // namespace quon::test
