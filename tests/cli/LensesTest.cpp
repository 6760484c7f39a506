// Kinds, untouched, reclaim and names, against a tree of known files.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <utility>

#include "QuonProcess.h"

namespace quon::test {
namespace {

using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

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

TEST_F(Lenses, KindsAreThoseOfTheFolder) {
  const Json films = quon.document({"kinds", quon.folder.at("tree/Films")});
  Json media = films.at("rows").at(0);
  media.erase("physical");
  EXPECT_EQ(media, Json::parse(R"({"id":"media","label":"Media","logical":4194304,"count":1})"));
  EXPECT_EQ(films.at("small"), 100);
  EXPECT_THAT(quon.run({"kinds", quon.tree}).out, HasSubstr("2 files  Media\n"));
}

TEST_F(Lenses, UntouchedListsWhatIsOlderThanTheAge) {
  for (const auto& [age, count] : {std::pair("2y", 1U), std::pair("3y", 0U)}) {
    EXPECT_EQ(quon.document({"untouched", quon.tree, "--older-than", age}).at("rows").size(), count) << age;
  }
  EXPECT_THAT(quon.run({"untouched", quon.tree}).out,
              AllOf(HasSubstr("2.2 yr"), HasSubstr("\n    2.0 MB  unchanged for 1.0 yr or longer, ")));
}

TEST_F(Lenses, ReclaimListsOnlyWhatIsKnownToBeMadeAgain) {
  EXPECT_EQ(quon.document({"reclaim", quon.tree}).at("groups").size(), 2U);
  EXPECT_THAT(quon.run({"reclaim", quon.tree}).out,
              AllOf(HasSubstr("caches (marked CACHEDIR.TAG) — whatever filled it refills it\n"),
                    HasSubstr("  " + quon.folder.at("tree/past/node_modules") + "/\n"),
                    HasSubstr("    8.0 MB  ≈ reclaimable under " + quon.tree + "\n")));
  EXPECT_THAT(quon.run({"reclaim", quon.folder.at("tree/Films")}).out, HasSubstr("\nNo folder here "));
}

TEST_F(Lenses, NamesAreThoseOfTheFolderInTheMetric) {
  for (const char* folder : {"tree/a/1", "tree/a/2"}) {
    writeFile(quon.folder.folder(folder) + "/dat", std::string(6 * kMiB, 'x'));
    const std::string sparse = quon.folder.at(folder) + "/disk.img";
    writeFile(sparse, "x");
    std::filesystem::resize_file(sparse, 50 * kMiB);
  }
  (void)quon.document({"scan", quon.tree});
  const auto names = [&](const std::string& folder, const char* metric) {
    return namesOf(quon.document({"names", quon.folder.at(folder), "--metric", metric}).at("rows"));
  };
  EXPECT_THAT(names("tree", "physical"), ElementsAre("dat"));
  EXPECT_THAT(names("tree", "logical"), ElementsAre("disk.img", "dat", "blob"));
  EXPECT_THAT(names("tree/a/1", "physical"), IsEmpty()) << "those of the saved folder above it";
  for (const auto& [folder, count] : {std::pair("tree/a", 2U), std::pair("tree/a/1", 1U)}) {
    EXPECT_EQ(quon.document({"names", quon.folder.at(folder), "--name", "dat"}).at("files").size(), count);
  }
}

}  // namespace
}  // namespace quon::test
