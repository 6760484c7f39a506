// Kinds, untouched, reclaim and names, against a tree of known files.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "QuonProcess.h"

namespace quon::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

constexpr std::uint64_t kMiB = 1048576;

class Lenses : public testing::Test {
 protected:
  Lenses() {
    quon.folder.file("tree/Films/summer.mp4", 4 * kMiB);
    quon.folder.file("tree/Films/small.txt", 100);
    const std::string old = quon.folder.file("tree/past/winter.MKV", 2 * kMiB);
    quon.folder.file("tree/past/node_modules/deep/node_modules/lib.so", 3 * kMiB);
    quon.folder.file("tree/cached/blob", 5 * kMiB);
    writeFile(quon.folder.at("tree/cached/CACHEDIR.TAG"),
              "Signature: 8a477f597d28d172789f06886806bc55\n# mine\n");
    quon.folder.file("tree/guessed/blob", 5 * kMiB);
    writeFile(quon.folder.at("tree/guessed/CACHEDIR.TAG"), "not signed");
    std::filesystem::last_write_time(
        old, std::filesystem::file_time_type::clock::now() - std::chrono::hours(24 * 800));
  }

  const Quon quon;
};

TEST_F(Lenses, KindsAddUpToTheFolder) {
  const Json kinds = quon.document({"kinds", quon.tree});
  std::uint64_t total = kinds.at("small");
  for (const Json& row : kinds.at("rows")) total += row.at("logical").get<std::uint64_t>();
  EXPECT_EQ(total, quon.document({"ls", quon.tree}).at("logical"));
  const Json films = quon.document({"kinds", quon.folder.at("tree/Films")});
  Json media = films.at("rows").at(0);
  media.erase("physical");
  EXPECT_EQ(media, Json::parse(R"({"id":"media","label":"Media","logical":4194304,"count":1})"));
  EXPECT_EQ(films.at("small"), 100);
  EXPECT_THAT(quon.run({"kinds", quon.tree}).out, HasSubstr("2 files  Media\n"));
}

TEST_F(Lenses, UntouchedListsWhatIsOlderThanTheAge) {
  const auto listed = [&](const Arguments& more) {
    Arguments all{"untouched", quon.tree};
    all.insert(all.end(), more.begin(), more.end());
    return namesOf(quon.document(all).at("rows"));
  };
  EXPECT_THAT(listed({"--older-than", "2y"}), ElementsAre("winter.MKV"));
  EXPECT_THAT(listed({"--older-than", "3y"}), IsEmpty());
  EXPECT_THAT(quon.run({"untouched", quon.tree}).out,
              AllOf(HasSubstr("2.2 yr"), HasSubstr("\n    2.0 MB  unchanged for 1.0 yr or longer, ")));
}

TEST_F(Lenses, ReclaimListsOnlyWhatIsKnownToBeMadeAgainAndEachOnce) {
  const Json all = quon.document({"reclaim", quon.tree});
  std::vector<std::string> paths;
  std::uint64_t total = 0;
  for (const Json& group : all.at("groups")) {
    total += group.at("total").get<std::uint64_t>();
    for (const Json& folder : group.at("folders")) paths.push_back(folder.at("path"));
  }
  EXPECT_THAT(paths,
              UnorderedElementsAre(quon.folder.at("tree/cached"), quon.folder.at("tree/past/node_modules")));
  EXPECT_EQ(all.at("total"), total);
  EXPECT_THAT(quon.run({"reclaim", quon.tree}).out,
              AllOf(HasSubstr("caches (marked CACHEDIR.TAG) — whatever filled it refills it\n"),
                    HasSubstr("  " + quon.folder.at("tree/past/node_modules") + "/\n"),
                    HasSubstr("    8.0 MB  ≈ reclaimable under " + quon.tree + "\n")));
  EXPECT_THAT(quon.run({"reclaim", quon.folder.at("tree/Films")}).out, HasSubstr("\nNo folder here "));
}

TEST_F(Lenses, NamesAreThoseOfTheFolderInTheMetric) {
  for (const char* folder : {"tree/a/1", "tree/a/2", "tree/b"}) {
    writeFile(quon.folder.folder(folder) + "/dat", std::string(6 * kMiB, 'x'));
  }
  for (const char* folder : {"tree/a/1", "tree/a/2"}) {
    const std::string sparse = quon.folder.at(folder) + "/disk.img";
    writeFile(sparse, std::string(5 * kMiB + 4096, 'x'));
    std::filesystem::resize_file(sparse, 50 * kMiB);
  }
  (void)quon.document({"scan", quon.tree});
  const auto names = [&](const std::string& folder, const char* metric) {
    return namesOf(quon.document({"names", quon.folder.at(folder), "--metric", metric}).at("rows"));
  };
  EXPECT_THAT(names("tree", "physical"), ElementsAre("dat", "disk.img"));
  EXPECT_THAT(names("tree", "logical"), ElementsAre("disk.img", "dat"));
  EXPECT_THAT(names("tree/b", "physical"), IsEmpty()) << "those of the saved folder above it";
  const Json cut = quon.document({"names", quon.tree, "--limit", "1"});
  EXPECT_THAT(namesOf(cut.at("rows")), ElementsAre("disk.img"));
  EXPECT_EQ(cut.at("more"), 1);

  const auto files = [&](const std::string& folder) {
    return quon.document({"names", quon.folder.at(folder), "--name", "dat"}).at("files").size();
  };
  EXPECT_EQ(files("tree"), 3U);
  EXPECT_EQ(files("tree/a"), 2U);
  EXPECT_EQ(files("tree/past"), 0U);
  EXPECT_THAT(quon.run({"names", quon.folder.at("tree/a")}).out,
              testing::StartsWith(quon.folder.at("tree/a") + ": "));
}

}  // namespace
}  // namespace quon::test
