// Lenses follow what is shown, when they are seen.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "ModelHome.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint64_t kMiB = 1048576;

template <typename Rows>
std::vector<std::string> namesOf(const std::optional<Rows>& rows) {
  std::vector<std::string> names;
  if (!rows) return {"nothing yet"};
  for (const auto& row : *rows) names.push_back(row.name);
  return names;
}

class Lenses : public testing::Test {
 protected:
  Lenses() {
    home.top.file("tree/old/film.mp4", 3 * kMiB);
    home.top.file("tree/node_modules/lib.so", 2 * kMiB);
    // Larger on disk, smaller by length: the others are sparse.
    writeBytes(home.root + "/node_modules/data.bin", std::string(std::size_t{1536} * 1024, 'x'));
    home.now = std::time(nullptr) + 1000;
    model._ageCutoff.set(500);
    home.scan();
  }
  void see(Lens lens) {
    model._lens.set(lens);
    home.settle();
  }

  ModelHome home;
  AppModel& model = *home.model;
};

TEST_F(Lenses, FollowScopeMetricCutoffAndTreeWhileTheyAreSeen) {
  home.settle();
  EXPECT_FALSE(model._ageHits.get()) << "nobody looks at it";
  see(Lens::age);
  EXPECT_THAT(namesOf(model._ageHits.get()), ElementsAre("node_modules", "old"));
  model._metric.set(Metric::physical);
  EXPECT_TRUE(model._ageScanning.get());
  home.settle();
  EXPECT_EQ(model._ageHits.get()->front().name, "node_modules");
  model._ageCutoff.set(5'000'000);
  home.settle();
  EXPECT_THAT(namesOf(model._ageHits.get()), IsEmpty());
  model._ageCutoff.set(500);
  home.settle();
  model.jump(*model.entryFor(home.root + "/old"));
  home.settle();
  EXPECT_THAT(namesOf(model._ageHits.get()), ElementsAre("film.mp4"));
  home.top.file("tree/old/more.mp4", 4 * kMiB);
  home.push({{home.root + "/old", 0, 5}});
  home.settle();
  EXPECT_THAT(namesOf(model._ageHits.get()), SizeIs(2));

  see(Lens::largest);
  EXPECT_THAT(namesOf(model._largest.get()), SizeIs(2));
  model.options.largestCap = 1;
  model._scope.set(model._result.get()->root);
  home.settle();
  EXPECT_THAT(namesOf(model._largest.get()), ElementsAre("data.bin")) << "by size on disk";
  EXPECT_EQ(model._largestFound.get(), 4U);
  EXPECT_FALSE(model._ageScanning.get());
  EXPECT_THAT(namesOf(model._ageHits.get()), SizeIs(2)) << "unseen, it stays as it was";
  see(Lens::age);
  EXPECT_THAT(namesOf(model._ageHits.get()), ElementsAre("node_modules", "old"));
}

TEST_F(Lenses, KindsAndReclaimAreOfTheScope) {
  see(Lens::kinds);
  EXPECT_EQ(model._kinds.get()->rows.at(0).kind.id, "media");
  see(Lens::reclaim);
  ASSERT_THAT(*model._reclaim.get(), SizeIs(1));
  EXPECT_EQ(model._reclaim.get()->front().total, 2 * kMiB + std::uint64_t{1536} * 1024);
  model.jump(*model.entryFor(home.root + "/old"));
  home.settle();
  EXPECT_THAT(*model._reclaim.get(), SizeIs(0));
  model.reclaimAllGroups();
  home.settle();
  EXPECT_THAT(*model.reclaimAllCache.get(), SizeIs(1));
  home.top.file("tree/node_modules/more.so", kMiB);
  home.push({{home.root + "/node_modules", 0, 5}});
  home.settle();
  EXPECT_EQ(model.reclaimAllCache.get()->front().total, 3 * kMiB + std::uint64_t{1536} * 1024);
  std::uint64_t event = 5;
  for (const char* tag : {"no tag", "Signature: 8a477f597d28d172789f06886806bc55", "no tag again"}) {
    writeBytes(home.root + "/old/CACHEDIR.TAG", tag);
    home.push({{home.root + "/old", 0, ++event}});
    home.settle();
    EXPECT_THAT(*model.reclaimAllCache.get(), SizeIs(*tag == 'S' ? 2 : 1)) << tag;
  }
}

TEST_F(Lenses, NamesAreReadFromTheIndexThatBelongsToTheTree) {
  home.top.file("tree/old/lib.so", 20 * kMiB);
  writeBytes(home.root + "/a.bin", std::string(6 * kMiB, 'x'));
  writeBytes(home.root + "/old/a.bin", std::string(6 * kMiB, 'x'));
  home.scan();
  see(Lens::names);
  EXPECT_THAT(namesOf(model._names.get()), ElementsAre("a.bin"));
  model._openName.set("a.bin");
  home.settle();
  ASSERT_THAT(model._filesOfName.get()->files, SizeIs(2));
  std::filesystem::remove(home.root + "/old/a.bin");
  home.push({{home.root + "/old", 0, 5}});
  home.settle();
  EXPECT_THAT(namesOf(model._names.get()), IsEmpty());
  EXPECT_THAT(model._filesOfName.get()->files, SizeIs(1));
  std::filesystem::remove(model.lastRun.index);
  model.scheduleNamesScan();
  home.settle();
  EXPECT_FALSE(model._names.get());
  EXPECT_THAT(model._namesError.get().value_or(""), HasSubstr("no index at "));
  model.scan(home.root);
  EXPECT_FALSE(model._names.get() || model._namesError.get() || model._filesOfName.get());
  home.finish();
  home.settle();
  EXPECT_THAT(namesOf(model._names.get()), IsEmpty());
}

TEST_F(Lenses, ReclaimFindsNothingOfAHomeBehindALink) {
  const std::string tag = "Signature: 8a477f597d28d172789f06886806bc55";
  std::filesystem::remove_all(home.root + "/node_modules");
  home.top.file("tree/users/me/letters", 3000);
  home.top.file("tree/users/me/.cache/app/blob", 2000);
  home.top.folder("tree/users/me/dots/config");
  std::filesystem::create_directory_symlink("dots/config", home.root + "/users/me/.config");
  writeBytes(home.root + "/users/me/CACHEDIR.TAG", tag);
  writeBytes(home.root + "/users/me/dots/CACHEDIR.TAG", tag);
  std::filesystem::create_directory_symlink(home.root + "/users", home.top.at("home"));
  home.userHome = home.top.at("home") + "/me";
  home.restart();
  home.model->_lens.set(Lens::reclaim);
  for (const std::string& root : {home.root, home.userHome}) {
    home.model->scan(root);
    home.finish();
    home.settle();
    ASSERT_THAT(*home.model->_reclaim.get(), SizeIs(1)) << root;
    const Reclaim::Group& group = home.model->_reclaim.get()->front();
    EXPECT_EQ(group.rule.label, "app caches (~/.cache)");
    EXPECT_EQ(group.total, 2000U);
  }
}

}  // namespace
}  // namespace quon::test
