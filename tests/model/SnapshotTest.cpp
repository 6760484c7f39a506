#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <thread>

#include "ModelHome.h"
#include "snapshot/MenuBarImage.h"
#include "snapshot/QuonGauge.h"
#include "snapshot/QuonSnapshot.h"
#include "snapshot/SharedStore.h"
#include "support/ChildProcess.h"
#include "support/Shell.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;
using testing::Contains;
using testing::ElementsAre;
using testing::Field;
using testing::StartsWith;
using Item = QuonSnapshot::Item;

constexpr std::uint64_t kMiB = 1048576;

std::string contentOf(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Snapshot : public testing::Test {
 protected:
  [[nodiscard]] std::string file() const { return home.top.at("data/shared/snapshot.json"); }
  [[nodiscard]] std::size_t written() {
    std::size_t count = 0;
    for (const std::string& line : home.log.lines) count += line.starts_with("snapshot written: ") ? 1 : 0;
    return count;
  }
  void pass(double seconds) {
    home.main.advance(std::chrono::duration<double>(seconds));
    home.settle();
  }
  ModelHome home;
};

TEST_F(Snapshot, ShowsTheRootItsLargestFoldersAndItsVolume) {
  home.top.file("tree/films/old/one.mp4", 3 * kMiB);
  home.top.file("tree/photos/two.jpg", 2 * kMiB);
  home.top.file("tree/bad\xff/three", 5);
  home.scan();
  home.settle();
  const QuonSnapshot shown = QuonSnapshot::decoded(contentOf(file())).value();
  EXPECT_EQ(shown.generatedAt, static_cast<double>(home.now - 978'307'200));
  EXPECT_THAT(shown.topFolders, ElementsAre(Item{"films", 3 * kMiB}, Item{"photos", 2 * kMiB},
                                            Item{"bad\xEF\xBF\xBD", 5}));
  EXPECT_THAT(shown.topKinds, ElementsAre(Item{"Media", 3 * kMiB}, Item{"Images", 2 * kMiB}));
  EXPECT_THAT(shown.areas, ElementsAre(Field(&QuonSnapshot::Area::topFolders, ElementsAre(Item{"old", 3 * kMiB})),
                                       testing::_, testing::_));
  EXPECT_EQ(shown.rootName, "tree");
  EXPECT_EQ(shown.volumeName, "home");
  EXPECT_EQ(shown.usedFraction, 0.75);
  EXPECT_EQ((std::tuple{shown.used, shown.free, shown.total}), (std::tuple{750, 250, 1000}));
  EXPECT_EQ(QuonSnapshot::decoded(shown.encoded()), shown);
  EXPECT_THAT(shown.encoded(), StartsWith(R"({"generatedAt":)"));
  EXPECT_EQ(QuonSnapshot::decoded("{}"), std::nullopt);
  EXPECT_EQ(fs::status(file()).permissions(), fs::perms::owner_read | fs::perms::owner_write);
}

TEST_F(Snapshot, OfSeveralCallsTheLastCountsAndSteadyChangesDoNotPutItOffForEver) {
  home.scan();
  home.settle();
  const std::size_t before = written();
  ASSERT_EQ(before, 1U);
  for (int call = 0; call < 3; ++call) {
    home.model->scheduleWidgetSnapshot(std::chrono::seconds(2));
    pass(0.4);
  }
  pass(1.5);
  EXPECT_EQ(written(), before) << "written before two seconds after the last call";
  pass(0.2);
  EXPECT_EQ(written(), before + 1);
  for (std::uint64_t batch = 1; batch <= 12; ++batch) {
    home.top.file("tree/file" + std::to_string(batch), 1);
    home.push({{home.root, 0, batch}});
    home.main.advance(std::chrono::milliseconds(1500));
    home.settle(1.5);
  }
  EXPECT_GE(written(), before + 2) << "batches every second and a half kept it from being written";
}

TEST_F(Snapshot, ThatCannotBeWrittenLeavesTheOneBefore) {
  inPrivateMounts([&] {
    home.scan();
    home.settle();
    ASSERT_TRUE(shell("mount -t tmpfs -o size=64k tmpfs $1", {home.top.at("data/shared")}));
    const SharedStore store(home.services.files, {.home = "", .data = home.top.at("data"), .config = "", .state = ""},
                            home.log);
    QuonSnapshot snapshot;
    snapshot.rootName = "first";
    ASSERT_TRUE(store.write(snapshot));
    const std::string first = contentOf(file());
    snapshot.rootName = std::string(100'000, 'x');
    EXPECT_FALSE(store.write(snapshot));
    EXPECT_EQ(contentOf(file()), first);
    EXPECT_THAT(home.log.lines, Contains(StartsWith("snapshot write failed: ")));
    std::size_t files = 0;
    for (const auto& each : fs::directory_iterator(home.top.at("data/shared"))) files += each.exists() ? 1 : 0;
    EXPECT_EQ(files, 1U) << "a file that is not whole was left";
    home.model.reset();
  });
}

TEST_F(Snapshot, IsNeverSeenInPart) {
  const SharedStore store(home.services.files, {.home = "", .data = home.top.at("data"), .config = "", .state = ""},
                          home.log);
  QuonSnapshot snapshot;
  ASSERT_TRUE(store.write(snapshot));
  std::atomic<bool> done{false};
  std::atomic<int> broken{0};
  std::atomic<int> reads{0};
  std::thread reader([&] {
    while (!done || reads < 10) {
      if (!QuonSnapshot::decoded(contentOf(file()))) ++broken;
      ++reads;
    }
  });
  for (std::size_t size = 0; size < 60; ++size) {
    snapshot.rootName = std::string(size * 3001, 'y');
    EXPECT_TRUE(store.write(snapshot));
  }
  done = true;
  reader.join();
  EXPECT_EQ(broken, 0) << "of " << reads << " reads";
}

TEST(Gauge, FollowsTheVolumeAndKeepsWhatItKnew) {
  ManualQueue main;
  ManualBackgroundQueue queue;
  FakeVolumes volumes;
  volumes.volume = VolumeCapacity{"", 1000, 250, 400};
  QuonGauge gauge(main, queue, volumes, "/home/user");
  const auto pass = [&](double seconds) {
    main.advance(std::chrono::duration<double>(seconds));
    queue.runPosted();
    main.runPosted();
  };
  const auto values = [&] {
    return std::tuple{gauge._used.get(), gauge._free.get(), gauge._total.get(), gauge._usedFraction.get()};
  };
  pass(0);
  EXPECT_EQ(values(), (std::tuple{600, 400, 1000, 0.6}));
  EXPECT_EQ(gauge._volumeName.get(), "Disk");
  int notified = 0;
  const Observation observation = gauge._free.observe([&](std::int64_t) { ++notified; });
  pass(46);
  EXPECT_EQ(notified, 0) << "nothing changed";
  for (const auto& unusable : {std::optional<VolumeCapacity>(), std::optional(VolumeCapacity{"x", 0, 5, 5})}) {
    volumes.volume = unusable;
    pass(46);
    EXPECT_EQ(values(), (std::tuple{600, 400, 1000, 0.6}));
  }
  volumes.volume = VolumeCapacity{"disk", 1000, 2000, std::nullopt};
  pass(46);
  EXPECT_EQ(values(), (std::tuple{0, 2000, 1000, 0.0})) << "more is free than there is";
  EXPECT_EQ(notified, 1);
}

TEST(Gauge, ItsPictureIsAsLargeAsItsText) {
  for (const double fraction : {-1.0, 0.0, 0.07, 0.5, 0.999, 1.0, 7.0}) {
    const std::string picture = menuBarImage(fraction);
    EXPECT_THAT(picture, StartsWith("<svg ")) << fraction;
    EXPECT_EQ(picture.find("nan"), std::string::npos) << fraction;
  }
  EXPECT_NE(menuBarImage(0.078).find(">8%<"), std::string::npos);
  EXPECT_EQ(menuBarImage(7), menuBarImage(1));
}

}  // namespace
}  // namespace quon::test
