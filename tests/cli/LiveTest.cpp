// Indexes that are kept true, by the commands that do so.
#include <csignal>
#include <cstdint>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include "QuonProcess.h"
#include "support/ChildProcess.h"
#include "support/RawIndex.h"

namespace quon::test {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The document of another program of the same user.
Json documentBeside(const Quon& watching, const Arguments& arguments) {
  Quon beside;
  beside.environment = watching.environment;
  return beside.document(arguments);
}

/// The folders that a batch was about, read alone or with all below.
std::vector<std::string> foldersOf(const Json& applied) {
  std::vector<std::string> folders = applied.at("changedDirs");
  for (const Json& prefix : applied.at("replacedPrefixes")) folders.push_back(prefix);
  return folders;
}

TEST(Watch, ReportsEachBatchAndKeepsTheIndexCurrent) {
  Quon quon;
  quon.folder.file("tree/a/one", 5000);
  (void)quon.document({"scan", quon.tree});
  const Lines lines(quon);
  Running watch = quon.start({"watch", quon.tree, "--json"});
  EXPECT_THAT(lines.document().at("message").get<std::string>(), StartsWith("index loaded — "));
  const auto saved = [&](const Arguments& more) {
    Arguments all{"ls", quon.tree};
    all.insert(all.end(), more.begin(), more.end());
    return documentBeside(quon, all).at("logical");
  };
  quon.folder.file("tree/a/two", 300);
  quon.folder.file("tree/new/three", 40);
  EXPECT_THAT(foldersOf(lines.document()),
              AllOf(Contains(quon.folder.at("tree/a")), Contains(quon.folder.at("tree/new"))));
  EXPECT_EQ(saved({"--no-catch-up"}), 5340);
  // Another program catches the same index up, and the first goes on.
  quon.folder.file("tree/a/four", 7);
  EXPECT_EQ(saved({}), 5347);
  EXPECT_THAT(foldersOf(lines.document()), Contains(quon.folder.at("tree/a")));
  EXPECT_EQ(saved({"--no-catch-up"}), 5347);
  watch.signal(SIGINT);
  const Finished done = watch.wait();
  EXPECT_EQ(done.status, 128 + SIGINT);
  EXPECT_EQ(done.err, "");
}

TEST(Watch, WithoutCatchUpShowsTheSavedStateAndThenWatches) {
  Quon quon;
  quon.folder.file("tree/one", 5000);
  (void)quon.document({"scan", quon.tree});
  const Lines lines(quon);
  Running watch = quon.start({"watch", quon.tree, "--json", "--no-catch-up"});
  EXPECT_EQ(lines.document(), Json::parse(R"({"event":"ready","message":"index loaded"})"));
  quon.folder.file("tree/two", 300);
  EXPECT_THAT(foldersOf(lines.event("applied")), Contains(quon.tree));
}

TEST(Watch, ReportsThatItCannotBegin) {
  Quon quon;
  quon.environment["XDG_STATE_HOME"] = quon.folder.file("no folder", 1);
  for (int round = 0; round < 2; ++round) {  // after a scan, and with a saved index
    const Finished watch = quon.run({"watch", quon.tree, "--json"});
    EXPECT_EQ(watch.status, 1);
    EXPECT_THAT(watch.err, HasSubstr("quon: changes cannot be watched: "));
    EXPECT_THAT(watch.out, testing::Not(HasSubstr("ready")));
  }
}

TEST(Watch, EndsWhenTheFolderHasGone) {
  Quon quon;
  quon.folder.file("tree/one", 5000);
  (void)quon.document({"scan", quon.tree});
  const Lines lines(quon);
  Running watch = quon.start({"watch", quon.tree, "--json"});
  EXPECT_EQ(lines.document().at("event"), "ready");
  std::filesystem::rename(quon.tree, quon.folder.at("before"));
  EXPECT_NE(lines.event("needsRescan").at("reason"), "");
  const Finished done = watch.wait();
  EXPECT_EQ(done.status, 1);
  EXPECT_THAT(linesOf(done.err),
              Contains(AllOf(HasSubstr("changes cannot be watched"), HasSubstr(quon.tree))));
}

/// What cannot be written is kept in memory: every answer stays true, and the index stays as it was.
TEST(Watch, GoesOnOverAFullDisk) {
  inPrivateMounts([] {
    Quon quon;
    const std::string data = quon.environment.at("XDG_DATA_HOME");
    ASSERT_EQ(::mount("tmpfs", data.c_str(), "tmpfs", 0, "size=1m,mode=0700"), 0);
    quon.folder.file("tree/file", 500);
    (void)quon.document({"scan", quon.tree});
    const std::string many = quon.folder.folder("many");
    for (int number = 0; number < 8000; ++number) {
      quon.folder.file("many/" + std::string(200, 'n') + std::to_string(number));
    }
    {
      const Lines lines(quon);
      Running watch = quon.start({"watch", quon.tree, "--json"});
      EXPECT_EQ(lines.document().at("event"), "ready");
      std::filesystem::rename(many, quon.tree + "/many");
      EXPECT_THAT(lines.event("needsRescan").at("reason").get<std::string>(), HasSubstr("full"));
      EXPECT_EQ(lines.event("ready").at("event"), "ready");
      quon.folder.file("tree/later", 70);
      EXPECT_THAT(foldersOf(lines.event("applied")), Contains(quon.tree));
      EXPECT_EQ(documentBeside(quon, {"ls", quon.tree, "--no-catch-up"}).at("files"), 1);
      watch.signal(SIGKILL);
      (void)watch.wait();
    }
    quon.output.clear();
    const Finished listed = quon.run({"ls", quon.tree, "--json"});
    EXPECT_EQ(listed.status, 0);
    EXPECT_EQ(Json::parse(listed.out).at("files"), 8002);
    EXPECT_THAT(listed.err, HasSubstr("the index was not saved: "));
    EXPECT_EQ(documentBeside(quon, {"ls", quon.tree, "--no-catch-up"}).at("files"), 1);
    ASSERT_EQ(::umount2(data.c_str(), MNT_DETACH), 0);
  });
}

/// Those of the next recorder continue from there, whatever its clock says.
TEST(Record, AnInterruptLeavesTheNewestIdentifierInTheJournal) {
  Quon quon;
  const Lines lines(quon);
  Running recorder = quon.start({"record", "--json"});
  ASSERT_EQ(lines.document().at("event"), "ready");
  const std::string index = documentBeside(quon, {"scan", quon.tree}).at("index");
  const std::string issued = RawIndex(index).value("SELECT value FROM meta WHERE key = 'lastEventId'");
  recorder.signal(SIGINT);
  EXPECT_EQ(recorder.wait().status, 128 + SIGINT);
  RawIndex journal(quon.environment.at("XDG_STATE_HOME") + "/quon/journal.sqlite");
  EXPECT_EQ(journal.value("SELECT value >= " + issued + " FROM meta WHERE key = 'newest'"), "1");
}

}  // namespace
}  // namespace quon::test
