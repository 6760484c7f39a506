// The search and the rows of the command bar.
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "QuonProcess.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;

constexpr std::uint64_t kMiB = 1048576;

class Search : public testing::Test {
 protected:
  Search() {
    quon.folder.file("tree/Films/summer.mp4", 4 * kMiB);
    quon.folder.file("tree/past/winter.MKV", 2 * kMiB);
  }

  [[nodiscard]] Json found(Arguments words) const {
    words.insert(words.begin(), "search");
    words.insert(words.end(), {"--in", quon.tree});
    return quon.document(words);
  }
  [[nodiscard]] std::vector<std::string> names(const Arguments& words) const {
    return namesOf(found(words).at("rows"));
  }

  Quon quon;
};

TEST_F(Search, FindsWhatTheWordsAndFiltersAskFor) {
  EXPECT_THAT(names({"kind:video", "size:>1mb"}), ElementsAre("summer.mp4", "winter.MKV"));
  EXPECT_THAT(names({"kind:video in:PAST"}), ElementsAre("winter.MKV"));
  const Json one = found({"kind:video", "--limit", "1"});
  EXPECT_THAT(namesOf(one.at("rows")), ElementsAre("summer.mp4"));
  EXPECT_EQ(one.at("more"), 1);
}

TEST_F(Search, FindsTheSameWhetherTheFolderIsASavedRootOrBelowOne) {
  quon.folder.file("tree/box/box/box.bin", 2 * kMiB);
  const Arguments words{"search", "box", "--in", quon.folder.at("tree/box")};
  EXPECT_THAT(namesOf(quon.document(words).at("rows")), ElementsAre("box", "box.bin"));
  std::filesystem::remove(quon.onlyIndex());
  (void)quon.document({"scan", quon.tree});
  EXPECT_THAT(namesOf(quon.document(words).at("rows")), ElementsAre("box", "box.bin"));
}

TEST_F(Search, TakesWordsAsTyped) {
  for (const char* name : {"[1080p].mkv", "1080p.mkv", "cafe\u0301.mkv", "caf\u00e9 -zebra.mkv"}) {
    quon.folder.file("tree/" + std::string(name), 2 * kMiB);
  }
  EXPECT_THAT(names({"[1080p]"}), ElementsAre("[1080p].mkv"));
  EXPECT_THAT(names({"mkv", "[1080p]"}), ElementsAre("[1080p].mkv"));
  EXPECT_THAT(names({"[a,b]"}), IsEmpty());
  EXPECT_THAT(names({"-zebra"}), ElementsAre("caf\u00e9 -zebra.mkv"));
  EXPECT_THAT(names({"-x", "-kind:video"}), IsEmpty());
  EXPECT_THAT(names({"CAF\u00c9"}), SizeIs(2));
}

TEST_F(Search, ReportsFiltersThatCannotBeRead) {
  const Finished odd = quon.run({"search", "kind:vid", "summer", "--in", quon.tree, "--json"});
  EXPECT_EQ(odd.status, 0);
  EXPECT_THAT(odd.err, StartsWith("quon: kind:vid is ignored: no such kind; kinds are code, "));
  EXPECT_THAT(namesOf(odd.document().at("rows")), ElementsAre("summer.mp4"));
  const Json ignored = odd.document().at("ignored");
  ASSERT_THAT(ignored, SizeIs(1));
  EXPECT_EQ(ignored[0].at("token"), "kind:vid");
  EXPECT_THAT(ignored[0].at("reason").get<std::string>(), StartsWith("no such kind"));
  EXPECT_EQ(found({"kind:video"}).at("ignored"), Json::array());
}

TEST_F(Search, IsWrongUsageWhenNothingIsAskedFor) {
  for (const Arguments& words : {Arguments{"size:big"}, {"kind:vid", "age:12h"}, {""}, {" "}, {}}) {
    Arguments all{"search", "--in", quon.tree, "--json"};
    all.insert(all.begin() + 1, words.begin(), words.end());
    const Finished done = quon.run(all);
    EXPECT_EQ(done.status, 2) << testing::PrintToString(words);
    EXPECT_EQ(done.out, "");
    EXPECT_THAT(done.err, EndsWith("(see quon search --help)\n"));
  }
  EXPECT_THAT(quon.indexFiles(), IsEmpty()) << "nothing was scanned for it";
}

TEST_F(Search, GivesHintsWhenNothingMatches) {
  const Finished none = quon.run({"search", "kind:", "video", "--in", quon.tree, "--json"});
  EXPECT_EQ(none.status, 0);
  EXPECT_EQ(none.err, "quon: kind: has no value; write kind:video without a space\n");
  EXPECT_EQ(none.document().at("hints"),
            Json::array({"kind: has no value; write kind:video without a space"}));
  EXPECT_EQ(found({"kind:video"}).at("hints"), Json::array());
}

TEST_F(Search, TheCommandBarListsCommandsWithoutScanning) {
  std::filesystem::copy(quon.tree, quon.home + "/tree", std::filesystem::copy_options::recursive);
  const Finished bare = quon.run({"commands", "summer", "--json"});
  EXPECT_EQ(bare.status, 0);
  EXPECT_EQ(bare.document(), Json::parse(R"({"rows":[]})"));
  EXPECT_THAT(bare.err, HasSubstr(quon.home + " is in no saved index"));
  const Json lenses = quon.document({"commands", "lens"}).at("rows");
  EXPECT_EQ(lenses.at(0).at("title"), "Go to Map");
  EXPECT_EQ(lenses.at(0).at("shortcut"), "⌘1");
  EXPECT_THAT(quon.run({"commands", "pane"}).out, HasSubstr("Ctrl+Alt+I    Hide List Pane\n"));
  EXPECT_THAT(quon.indexFiles(), IsEmpty());

  (void)quon.document({"scan", quon.home});
  quon.folder.file("home/summer later", 2 * kMiB);
  EXPECT_THAT(namesOf(quon.document({"commands", "summer"}).at("rows")), ElementsAre("summer.mp4"));
  writeFile(quon.onlyIndex(), "damaged");
  EXPECT_EQ(quon.run({"commands", "map"}).status, 0);
  EXPECT_EQ(std::filesystem::file_size(quon.onlyIndex()), 7U) << "scanned";
}

}  // namespace
}  // namespace quon::test
