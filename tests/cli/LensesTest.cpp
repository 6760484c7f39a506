// The lenses and the search, as the terminal shows them.
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
using testing::Not;
using testing::SizeIs;

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

  std::vector<std::string> namesOf(const Json& rows) {
    std::vector<std::string> names;
    for (const Json& row : rows) names.push_back(row.at("name"));
    return names;
  }

  Quon quon;
};

TEST_F(Lenses, KindsAddUpToTheFolder) {
  const Json kinds = quon.document({"kinds", quon.tree});
  std::uint64_t total = kinds.at("small");
  for (const Json& row : kinds.at("rows")) total += row.at("logical").get<std::uint64_t>();
  EXPECT_EQ(total, quon.document({"ls", quon.tree}).at("logical"));
  EXPECT_EQ(kinds.at("rows").at(1).at("id"), "media");
  EXPECT_EQ(kinds.at("rows").at(1).at("logical"), 6 * kMiB);
  EXPECT_EQ(kinds.at("rows").at(1).at("count"), 2);
  const Json films = quon.document({"kinds", quon.folder.at("tree/Films")});
  EXPECT_EQ(films.at("rows"), Json::array({{{"id", "media"},
                                            {"label", "Media"},
                                            {"logical", 4 * kMiB},
                                            {"physical", films.at("rows").at(0).at("physical")},
                                            {"count", 1}}}));
  EXPECT_EQ(films.at("small"), 100);
  EXPECT_THAT(quon.run({"kinds", quon.tree}).out, HasSubstr("2 files  Media\n"));
}

TEST_F(Lenses, UntouchedTakesAnAge) {
  EXPECT_THAT(namesOf(quon.document({"untouched", quon.tree, "--older-than", "2y"}).at("rows")),
              ElementsAre("winter.MKV"));
  EXPECT_THAT(namesOf(quon.document({"untouched", quon.tree, "--older-than", "3y"}).at("rows")), SizeIs(0));
  EXPECT_THAT(quon.run({"untouched", quon.tree}).out,
              AllOf(HasSubstr("2.2 yr"), HasSubstr("\n    2.0 MB  unchanged for 1.0 yr or longer, ")));
  const Finished wrong = quon.run({"untouched", quon.tree, "--older-than", "soon"});
  EXPECT_EQ(wrong.status, 2);
  EXPECT_THAT(linesOf(wrong.err), SizeIs(1));
}

TEST_F(Lenses, ReclaimListsWhatIsProvedToComeBackAndEachOnce) {
  const Json all = quon.document({"reclaim", quon.tree});
  ASSERT_THAT(all.at("groups"), SizeIs(2));
  std::vector<std::string> paths;
  std::uint64_t total = 0;
  for (const Json& group : all.at("groups")) {
    total += group.at("total").get<std::uint64_t>();
    for (const Json& folder : group.at("folders")) paths.push_back(folder.at("path"));
  }
  EXPECT_THAT(paths, testing::UnorderedElementsAre(quon.folder.at("tree/cached"),
                                                   quon.folder.at("tree/past/node_modules")));
  EXPECT_EQ(all.at("total"), total);
  EXPECT_THAT(quon.run({"reclaim", quon.tree}).out,
              AllOf(HasSubstr("caches (marked CACHEDIR.TAG) — whatever filled it refills it\n"),
                    HasSubstr("  " + quon.folder.at("tree/past/node_modules") + "/\n"),
                    HasSubstr("    8.0 MB  ≈ reclaimable under " + quon.tree + "\n")));
  EXPECT_THAT(quon.run({"reclaim", quon.folder.at("tree/Films")}).out,
              HasSubstr("Nothing here is known to come back by itself."));
}

TEST_F(Lenses, SearchSpeaksTheLanguageOfTheField) {
  EXPECT_THAT(namesOf(quon.document({"search", "kind:video", "size:>1mb", "--in", quon.tree}).at("rows")),
              ElementsAre("summer.mp4", "winter.MKV"));
  EXPECT_THAT(namesOf(quon.document({"search", "kind:video in:PAST", "--in", quon.tree}).at("rows")),
              ElementsAre("winter.MKV"));
  EXPECT_THAT(
      namesOf(quon.document({"search", "kind:video", "--in", quon.folder.at("tree/Films")}).at("rows")),
      ElementsAre("summer.mp4"));
  const std::string one = quon.run({"search", "kind:video", "--limit", "1", "--in", quon.tree}).out;
  EXPECT_THAT(one, AllOf(HasSubstr("summer.mp4\n… and 1 more\n"), Not(HasSubstr("winter"))));
  const Finished odd = quon.run({"search", "size:big", "summer", "--in", quon.tree});
  EXPECT_EQ(odd.status, 0);
  EXPECT_EQ(odd.err, "quon: left out, for its value cannot be read: size:big\n");
  EXPECT_THAT(odd.out, HasSubstr("summer.mp4"));
  EXPECT_EQ(quon.run({"search"}).status, 2);
}

TEST_F(Lenses, ASearchInAFolderNeverFindsTheFolder) {
  quon.folder.file("tree/box/box/box.bin", 2 * kMiB);
  const Arguments words{"search", "box", "--in", quon.folder.at("tree/box")};
  EXPECT_THAT(namesOf(quon.document(words).at("rows")), ElementsAre("box", "box.bin"));
  std::filesystem::remove(quon.onlyIndex());
  (void)quon.document({"scan", quon.tree});
  EXPECT_THAT(namesOf(quon.document(words).at("rows")), ElementsAre("box", "box.bin"))
      << "other rows when the folder above is the saved root";
}

TEST_F(Lenses, AWatchThatCannotBeginSaysSo) {
  quon.environment["XDG_STATE_HOME"] = quon.folder.file("no folder", 1);
  for (int round = 0; round < 2; ++round) {  // after a scan, and with a saved index
    const Finished watch = quon.run({"watch", quon.tree, "--json"});
    EXPECT_EQ(watch.status, 1);
    EXPECT_THAT(watch.err, HasSubstr("quon: changes cannot be watched: live stream creation failed\n"));
    EXPECT_THAT(watch.out, testing::Not(HasSubstr("ready")));
  }
}

TEST_F(Lenses, NamesAreThoseOfTheFolderThatWasAsked) {
  for (const char* folder : {"tree/a/1", "tree/a/2", "tree/b"}) {
    writeFile(quon.folder.folder(folder) + "/dat", std::string(6 * kMiB, 'x'));
  }
  (void)quon.document({"scan", quon.tree});
  const auto countOf = [&](const std::string& folder) {
    const Json rows = quon.document({"names", quon.folder.at(folder)}).at("rows");
    return rows.empty() ? 0 : rows.at(0).at("count").get<int>();
  };
  const auto filesOf = [&](const std::string& folder) {
    return quon.document({"names", quon.folder.at(folder), "--name", "dat"}).at("files").size();
  };
  EXPECT_EQ(countOf("tree"), 3);
  EXPECT_EQ(countOf("tree/a"), 2);
  EXPECT_EQ(countOf("tree/b"), 0) << "those of the saved folder above it";
  EXPECT_EQ(filesOf("tree"), 3U);
  EXPECT_EQ(filesOf("tree/a"), 2U);
  EXPECT_EQ(filesOf("tree/a/2"), 1U);
  EXPECT_EQ(filesOf("tree/past"), 0U);
  EXPECT_THAT(quon.run({"names", quon.folder.at("tree/a")}).out,
              testing::StartsWith(quon.folder.at("tree/a") + ": "));
}

TEST_F(Lenses, WordsInBracketsKeepThem) {
  quon.folder.file("tree/[1080p].mkv", 2 * kMiB);
  quon.folder.file("tree/1080p.mkv", 2 * kMiB);
  quon.folder.file("tree/[sub]/x", 5);
  const auto find = [&](Arguments words) {
    words.insert(words.begin(), "search");
    words.insert(words.end(), {"--in", quon.tree});
    return namesOf(quon.document(words).at("rows"));
  };
  EXPECT_THAT(find({"[1080p]"}), ElementsAre("[1080p].mkv"));
  EXPECT_THAT(find({"mkv", "[1080p]"}), ElementsAre("[1080p].mkv"));
  EXPECT_THAT(find({"[a,b]"}), SizeIs(0));
  EXPECT_EQ(quon.document({"ls", quon.folder.at("tree/[sub]")}).at("logical"), 5);
  EXPECT_EQ(quon.run({"ls", quon.tree, "--limit", "[2]"}).status, 2);
}

TEST_F(Lenses, LimitsAreNumbersOfRows) {
  for (const char* limit : {"0", "-1", "1.5", "1000000001", "18446744073709551615", "18446744073709551616"}) {
    const Finished refused = quon.run({"ls", quon.tree, "--limit", limit});
    EXPECT_EQ(refused.status, 2) << limit;
    EXPECT_LT(refused.err.size(), 150U) << refused.err;
    EXPECT_EQ(refused.out, "");
  }
  EXPECT_THAT(quon.document({"ls", quon.tree, "--limit", "1000000000"}).at("rows"), SizeIs(4));
}

TEST_F(Lenses, CommandsAreThoseOfTheBar) {
  std::filesystem::copy(quon.tree, quon.home + "/tree", std::filesystem::copy_options::recursive);
  const Json rows = quon.document({"commands", "summer"}).at("rows");
  ASSERT_THAT(rows, SizeIs(1));
  EXPECT_EQ(rows.at(0).at("path"), quon.home + "/tree/Films/summer.mp4");
  const Json lenses = quon.document({"commands", "lens"}).at("rows");
  EXPECT_EQ(lenses.at(0).at("title"), "Go to Map");
  EXPECT_EQ(lenses.at(0).at("shortcut"), "⌘1");
  EXPECT_THAT(quon.run({"commands", "pane"}).out, HasSubstr("Ctrl+Alt+I    Hide List Pane\n"));
}

TEST_F(Lenses, IndexesOfDeletedFoldersAreCollectedWhenAsked) {
  const std::string gone = quon.folder.folder("gone");
  EXPECT_EQ(quon.run({"scan", gone}).status, 0);
  std::filesystem::remove(gone);
  EXPECT_EQ(quon.document({"indexes"}).at("rows").at(0).at("status"), "orphaned");
  EXPECT_THAT(quon.document({"indexes", "--collect"}).at("rows"), SizeIs(0));
  EXPECT_THAT(quon.indexFiles(), SizeIs(0));
}

}  // namespace
}  // namespace quon::test
