// Where the user looks, and live batches that change what is there.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "ModelHome.h"
#include "platform/Events.h"

namespace quon::test {
namespace {

using testing::ElementsAre;

constexpr std::uint64_t kMiB = 1048576;

std::vector<std::string> namesOf(const std::vector<Entry>& rows) {
  std::vector<std::string> names;
  names.reserve(rows.size());
  for (const Entry& row : rows) names.push_back(row.name);
  return names;
}

class Navigation : public testing::Test {
 protected:
  Navigation() {
    home.top.file("tree/a/b/film", 3 * kMiB);
    home.top.file("tree/a/small", 5);
    home.scan();
  }
  [[nodiscard]] RefPtr<DirNode> root() const { return model._result.get()->root; }

  ModelHome home;
  AppModel& model = *home.model;
};

TEST_F(Navigation, GoesToFoldersAndFilesAndUpToTheRoot) {
  model.jump(*model.entryFor(home.root + "/a/b"));
  EXPECT_EQ(model._scope.get()->name, "b");
  model.goUp();
  EXPECT_THAT(namesOf(model.entries()), ElementsAre("b", Entry::kRestName));
  model.jump(model.entries().back());
  EXPECT_EQ(model.scopePath(), home.root + "/a") << "the rest leads nowhere";
  const auto film = model.entryFor(home.root + "/a/b/film");
  ASSERT_TRUE(film);
  model._showInspector.set(false);
  model._query.set("film");
  model.jump(*film);
  EXPECT_EQ(model.scopePath(), home.root + "/a/b");
  EXPECT_EQ(model._selection.get(), "f:" + home.root + "/a/b/film");
  EXPECT_TRUE(model._showInspector.get());
  EXPECT_FALSE(model.hasQuery());
  model.copyPath(*film);
  EXPECT_EQ(home.desktop.clipboard, home.root + "/a/b/film");
  EXPECT_EQ(model._toast.get(), "copied " + home.root + "/a/b/film");
  for (const char* absent : {"/a/small", "/a/x", "/a/b/film/x", "x", "/x/y"}) {
    EXPECT_FALSE(model.entryFor(home.root + absent)) << absent;
  }
  for (int step = 0; step < 3; ++step) model.goUp();
  EXPECT_EQ(model._scope.get(), root());
}

TEST_F(Navigation, AViewedFolderThatWasRemovedGivesWayToTheRoot) {
  model.jump(*model.entryFor(home.root + "/a/b"));
  std::filesystem::rename(home.root + "/a", home.top.at("away"));
  home.push({{home.root, 0, 5}});
  EXPECT_EQ(model._scope.get(), root());
  EXPECT_EQ(model.scopePath(), home.root);
  EXPECT_EQ(model._toast.get(), "the folder you were viewing was removed");
}

TEST_F(Navigation, AViewedFolderThatWasReplacedIsViewedOn) {
  model.jump(*model.entryFor(home.root + "/a/b"));
  home.top.file("tree/a/b/three", 7);
  home.push({{home.root + "/a", EventFlag::mustScanSubdirs, 5}});
  EXPECT_EQ(model.scopePath(), home.root + "/a/b");
  EXPECT_EQ(model._scope.get()->totalLogical, 3 * kMiB + 7);
  EXPECT_TRUE(model._scope.get()->isWithin(*root()));
}

TEST_F(Navigation, AnOldRowLeadsToWhatIsThereNow) {
  const Entry folder = *model.entryFor(home.root + "/a/b");
  const Entry film = *model.entryFor(home.root + "/a/b/film");
  home.push({{home.root + "/a", EventFlag::mustScanSubdirs, 5}});
  for (const Entry& row : {folder, film}) {
    model._scope.set(root());
    model.jump(row);
    EXPECT_EQ(model._scope.get(), folderAt(root(), "a/b")) << row.id;
  }
  EXPECT_EQ(model._selection.get(), film.id);
  model._scope.set(std::get<RefPtr<DirNode>>(folder.payload));
  EXPECT_EQ(model._scope.get(), root()) << "a view set a folder that the tree contains no longer";

  std::filesystem::rename(home.root + "/a/b", home.top.at("away"));
  home.push({{home.root + "/a", 0, 6}});
  model._query.set("kept");
  for (const Entry& row : {folder, film}) {
    model.jump(row);
    EXPECT_EQ(model._toast.get(), row.path() + " is no longer there");
  }
  EXPECT_EQ(model._query.get(), "kept");
}

/// The tree is compared with the disk, at once the first time, then after ever longer breaks.
TEST_F(Navigation, LostTrackIsFoundAgainWithoutKeepingTheDiskBusy) {
  home.top.file("tree/unnoticed", 40);
  home.settle();
  home.events.history = {{home.root, EventFlag::userDropped, 4}};  // which the recovery's thread reads
  home.push({{home.root, EventFlag::mustScanSubdirs, 5}});
  EXPECT_EQ(model._toast.get(), "live updates paused — deep rescan flagged at the root");
  home.main.advance(std::chrono::duration<double>(0));
  home.finish();
  home.events.history.clear();
  EXPECT_EQ(root()->totalLogical, 3 * kMiB + 45);
  for (const double wait : {1.0, 2.0, 4.0, 8.0, 16.0, 32.0, 60.0, 60.0}) {
    home.push({{home.root, EventFlag::kernelDropped, 5}});
    EXPECT_FALSE(model._isLive.get());
    EXPECT_TRUE(model.isRecovering());
    home.main.advance(std::chrono::duration<double>(wait - 0.1));
    EXPECT_FALSE(model.isBusy()) << "before " << wait << " seconds are over";
    home.main.advance(std::chrono::duration<double>(0.2));
    EXPECT_TRUE(model.isBusy()) << "after " << wait << " seconds";
    home.finish();
    home.settle();
    EXPECT_TRUE(model._isLive.get());
  }
  std::filesystem::remove(home.root + "/unnoticed");
  home.scan();
  home.settle();
  home.top.file("tree/a/more", 1000);
  home.push({{home.root + "/a", 0, 9}});
  EXPECT_EQ(root()->totalLogical, 3 * kMiB + 1005) << "updates did not go on after the scan";
}

TEST_F(Navigation, ColoursStayWhenTheTreeIsReadAgain) {
  const auto slot = [&](const char* folder) { return model.topSlot(*folderAt(root(), folder)).value(); };
  const int before = slot("a/b");
  home.top.file("tree/larger/than/all", 30 * kMiB);
  home.settle();
  home.events.history = {{home.root, EventFlag::userDropped, 4}};  // which the recovery's thread reads
  home.push({{home.root, EventFlag::mustScanSubdirs, 5}});
  home.main.advance(std::chrono::duration<double>(0));
  home.finish();
  EXPECT_EQ(slot("a/b"), before);
  EXPECT_NE(slot("larger"), before);
  home.scan();
  home.settle();
  EXPECT_EQ(slot("larger"), 0) << "a scan ranks them by size";
}

TEST_F(Navigation, ABatchThatAScanMadeVoidChangesNothing) {
  home.settle();
  home.top.file("tree/a/more", 1000);
  home.events.push({{home.root + "/a", 0, 5}});
  home.queue(QueueName::liveEvents).runPosted();
  home.queue(QueueName::liveWork).advance(std::chrono::seconds(2));  // written, and waits for the main thread
  model.scan(home.root);
  home.finish();
  home.main.runPosted();
  EXPECT_EQ(root()->totalLogical, 3 * kMiB + 1005);
  EXPECT_EQ(model._version.get(), 0U);
}

}  // namespace
}  // namespace quon::test
