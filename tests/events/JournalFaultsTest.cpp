// A journal that vanishes, is torn, foreign or locked, under a recorder and streams that go on.
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "EventHome.h"
#include "database/Database.h"
#include "events/EventJournal.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

std::string journalOf(const EventHome& home) {
  return home.folders.state + "/journal.sqlite";
}

mode_t modeOf(const fs::path& path) {
  struct stat found {};
  EXPECT_EQ(::lstat(path.c_str(), &found), 0) << path;
  return found.st_mode & 0777U;
}

/// Makes a change, which the follower has to report.
void expectReport(Follower& follower, const std::string& file) {
  follower.home.temp.file("root/a/" + file);
  EXPECT_TRUE(follower.changes().contains(follower.home.at("a"))) << file << "\n" << follower.home.log.all();
}

TEST(Journal, IsClosedToOtherUsers) {
  EventHome home;
  fs::create_directories(home.folders.state);
  fs::permissions(home.folders.state, fs::perms(0755));
  Follower follower(home);
  expectReport(follower, "one");
  EXPECT_EQ(modeOf(home.folders.state), 0700U);
  for (const auto& entry : fs::directory_iterator(home.folders.state))
    EXPECT_EQ(modeOf(entry.path()), 0600U) << entry.path();
}

TEST(Journal, LostUnderALiveStreamIsBegunAnewAndLosesNothing) {
  const std::vector<std::pair<const char*, std::function<void(const EventHome&)>>> losses{
      {"file removed", [](const EventHome& home) { fs::remove(journalOf(home)); }},
      {"file and log removed",
       [](const EventHome& home) {
         for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(journalOf(home) + suffix);
       }},
      // In one step: what is in it goes on being written meanwhile.
      {"folder moved away",
       [](const EventHome& home) { fs::rename(home.folders.state, home.temp.at("gone")); }},
      {"file cut to nothing",
       [](const EventHome& home) { ASSERT_EQ(::truncate(journalOf(home).c_str(), 0), 0); }}};
  for (const auto& [name, lose] : losses) {
    SCOPED_TRACE(name);
    EventHome home;
    Follower follower(home);
    expectReport(follower, "before");
    lose(home);
    expectReport(follower, "after");
    expectReport(follower, "later");
    EXPECT_TRUE(fs::exists(journalOf(home)));
  }
}

TEST(Journal, BegunAnewIsNeverMistakenForTheLostOne) {
  EventHome home;
  home.temp.folder("root/changed");
  const std::uint64_t since = coverRoot(home);
  home.temp.file("root/changed/file");
  fs::remove_all(home.folders.state);
  (void)coverRoot(home);  // from now on, not from then
  EXPECT_TRUE(historySince(home, {}, since).contains(home.at("changed")));
}

TEST(Journal, ThatCannotBeReadIsSetAside) {
  const std::vector<std::pair<const char*, std::function<void(EventHome&)>>> damages{
      {"no database", [](EventHome& home) { std::ofstream(journalOf(home)) << std::string(10000, 'j'); }},
      {"another program's",
       [](EventHome& home) {
         Database::open(journalOf(home), Database::Mode::create)
             .exec("CREATE TABLE mine(x); INSERT INTO mine VALUES(1)");
       }},
      {"cut in the middle", [](EventHome& home) {
         (void)coverRoot(home);
         {
           EventJournal journal = EventJournal::open(home.folders.state, home.log);
           Transaction transaction = journal.begin();
           for (unsigned row = 1; row <= 5000; ++row)
             journal.mark(home.at("folder" + std::to_string(row)), journal.newestId() + row, false);
           transaction.commit();
         }
         Database::open(journalOf(home), Database::Mode::write).exec("PRAGMA wal_checkpoint(TRUNCATE)");
         fs::resize_file(journalOf(home), 12288);
       }}};
  for (const auto& [name, damage] : damages) {
    SCOPED_TRACE(name);
    EventHome home;
    fs::create_directories(home.folders.state);
    damage(home);
    LinuxEvents events(home.threads, home.folders, home.log);
    Listener listener(events, home.root, 1);  // reads all rows
    EXPECT_TRUE(listener.waitForHistory()) << home.log.all();
    EXPECT_TRUE(home.log.waitFor("set aside"));
    EXPECT_TRUE(fs::exists(journalOf(home) + ".damaged"));
    EXPECT_EQ(historySince(events, home.root, events.currentEventId())[home.root] & EventFlag::lostTrack, 0U);
  }
}

TEST(Journal, LockedByAnotherProgramIsWaitedFor) {
  EventHome home;
  Follower follower(home);
  expectReport(follower, "one");
  Database other = Database::open(journalOf(home), Database::Mode::write);
  other.exec("BEGIN IMMEDIATE");
  home.temp.file("root/a/two");
  EXPECT_TRUE(home.log.waitFor("another program has locked it"));
  other.exec("ROLLBACK");
  EXPECT_TRUE(follower.changes().contains(home.at("a")));
}

TEST(Journal, ThatCannotBeMadeGivesNoStreamAndSaysWhy) {
  EventHome home;
  home.temp.file("state");
  LinuxEvents events(home.threads, home.folders, home.log);
  EXPECT_FALSE(Listener(events, home.root, events.currentEventId()).begun());
  EXPECT_NE(home.log.all().find("no event journal: "), std::string::npos) << home.log.all();
}

TEST(Journal, OfAnotherUserIsRefused) {
  if (::getuid() != 0) GTEST_SKIP() << "takes root, to give a folder away";
  EventHome home;
  fs::create_directories(home.folders.state);
  ASSERT_EQ(::chown(home.folders.state.c_str(), 65534, 65534), 0);
  LinuxEvents events(home.threads, home.folders, home.log);
  EXPECT_FALSE(Listener(events, home.root, events.currentEventId()).begun());
  EXPECT_NE(home.log.all().find("another user owns"), std::string::npos) << home.log.all();
}

}  // namespace
}  // namespace quon::test
