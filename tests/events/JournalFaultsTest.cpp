// A journal that vanishes, is torn, foreign or locked, under a recorder and streams that go on.
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "EventHome.h"
#include "database/Database.h"
#include "events/EventJournal.h"
#include "support/ChildProcess.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

std::string journalOf(const EventHome& home) {
  return home.folders.state + "/journal.sqlite";
}

/// A stream that is live, with a journal on disk.
struct Followed {
  Followed()
      : events(home.threads, home.folders, home.log),
        since(events.currentEventId()),
        listener(events, home.root, since) {
    home.temp.folder("root/.settled");
    home.temp.folder("root/a");
    EXPECT_TRUE(listener.waitForHistory()) << home.log.all();
  }
  /// A change, which has to arrive.
  void expectDelivery(const std::string& file) {
    home.temp.file("root/a/" + file);
    settle(events, home.root, listener);
    EXPECT_TRUE(listener.take().contains(home.root + "/a")) << file << "\n" << home.log.all();
  }

  EventHome home;
  LinuxEvents events;
  std::uint64_t since;
  Listener listener;
};

TEST(Journal, IsForItsUserAlone) {
  Followed followed;
  followed.expectDelivery("one");
  struct stat found {};
  ASSERT_EQ(::stat(followed.home.folders.state.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 0777U, 0700U);
  for (const auto& entry : fs::directory_iterator(followed.home.folders.state)) {
    ASSERT_EQ(::stat(entry.path().c_str(), &found), 0);
    EXPECT_EQ(found.st_mode & 0777U, 0600U) << entry.path();
  }
}

TEST(Journal, IsClosedToOthersWhereItWasOpen) {
  EventHome home;
  fs::create_directories(home.folders.state);
  ASSERT_EQ(::chmod(home.folders.state.c_str(), 0755), 0);
  LinuxEvents events(home.threads, home.folders, home.log);
  (void)historySince(events, home.root, events.currentEventId());
  struct stat found {};
  ASSERT_EQ(::stat(home.folders.state.c_str(), &found), 0);
  EXPECT_EQ(found.st_mode & 0777U, 0700U);
}

TEST(Journal, HoldsNamesAsBytes) {
  Followed followed;
  const std::string name = "root/a/\xff\n\x01 ' \" %";
  followed.home.temp.folder(name);
  followed.home.temp.file(name + "/file");
  settle(followed.events, followed.home.root, followed.listener);
  EXPECT_TRUE(followed.listener.take().contains(followed.home.temp.at(name)));
}

TEST(Journal, DeletedUnderALiveStreamIsBegunAnew) {
  Followed followed;
  followed.expectDelivery("one");
  fs::remove(journalOf(followed.home));
  followed.expectDelivery("two");
  followed.expectDelivery("three");
  EXPECT_TRUE(fs::exists(journalOf(followed.home)));
}

TEST(Journal, DeletedWithItsLogIsBegunAnew) {
  Followed followed;
  followed.expectDelivery("one");
  for (const char* suffix : {"", "-wal", "-shm"}) fs::remove(journalOf(followed.home) + suffix);
  followed.expectDelivery("two");
}

TEST(Journal, DeletedWithItsFolderIsBegunAnew) {
  Followed followed;
  followed.expectDelivery("one");
  // In one step: what is in it goes on being written meanwhile.
  fs::rename(followed.home.folders.state, followed.home.temp.at("gone"));
  fs::remove_all(followed.home.temp.at("gone"));
  followed.expectDelivery("two");
}

TEST(Journal, TruncatedUnderALiveStreamIsBegunAnew) {
  Followed followed;
  followed.expectDelivery("one");
  ASSERT_EQ(::truncate(journalOf(followed.home).c_str(), 0), 0);
  followed.expectDelivery("two");
  followed.expectDelivery("three");
}

TEST(Journal, ThatWasLostIsNeverMistakenForTheNewOne) {
  EventHome home;
  home.temp.folder("root/changed");
  std::uint64_t since = 0;
  {
    LinuxEvents events(home.threads, home.folders, home.log);
    since = events.currentEventId();
    (void)historySince(events, home.root, since);
  }
  home.temp.file("root/changed/file");
  fs::remove_all(home.folders.state);
  {
    // The new one covers the time from now on, not from then.
    LinuxEvents events(home.threads, home.folders, home.log);
    (void)historySince(events, home.root, events.currentEventId());
  }
  LinuxEvents events(home.threads, home.folders, home.log);
  EXPECT_TRUE(historySince(events, home.root, since).contains(home.root + "/changed"));
}

void expectSetAside(EventHome& home) {
  LinuxEvents events(home.threads, home.folders, home.log);
  auto history = historySince(events, home.root, events.currentEventId());
  EXPECT_EQ(history[home.root] & EventFlag::lostTrack, 0U);
  EXPECT_TRUE(fs::exists(journalOf(home) + ".damaged"));
  EXPECT_TRUE(home.log.waitFor("set aside"));
}

TEST(Journal, ThatIsNoDatabaseIsSetAside) {
  EventHome home;
  fs::create_directories(home.folders.state);
  std::ofstream(journalOf(home)) << std::string(10000, 'j');
  expectSetAside(home);
}

TEST(Journal, OfAnotherProgramIsSetAside) {
  EventHome home;
  fs::create_directories(home.folders.state);
  Database::open(journalOf(home), Database::Mode::create)
      .exec("CREATE TABLE mine(x); INSERT INTO mine VALUES(1)");
  expectSetAside(home);
}

TEST(Journal, CutInTheMiddleIsSetAside) {
  EventHome home;
  {
    LinuxEvents events(home.threads, home.folders, home.log);
    (void)historySince(events, home.root, events.currentEventId());
  }
  {
    // Many rows, in the file itself.
    EventJournal journal = EventJournal::open(home.folders.state, home.log);
    Transaction transaction = journal.begin();
    for (int row = 1; row <= 5000; ++row) {
      journal.mark(home.root + "/folder" + std::to_string(row),
                   journal.newestId() + static_cast<unsigned>(row), false);
    }
    transaction.commit();
  }
  Database::open(journalOf(home), Database::Mode::write).exec("PRAGMA wal_checkpoint(TRUNCATE)");
  fs::resize_file(journalOf(home), 12288);
  LinuxEvents events(home.threads, home.folders, home.log);
  Listener listener(events, home.root, 1);
  ASSERT_TRUE(listener.waitForHistory()) << home.log.all();
  EXPECT_TRUE(home.log.waitFor("set aside"));
}

TEST(Journal, LockedByAnotherProgramIsWaitedFor) {
  Followed followed;
  followed.expectDelivery("one");
  Database other = Database::open(journalOf(followed.home), Database::Mode::write);
  other.exec("BEGIN IMMEDIATE");
  followed.home.temp.file("root/a/two");
  EXPECT_TRUE(followed.home.log.waitFor("another program has locked it"));
  other.exec("ROLLBACK");
  settle(followed.events, followed.home.root, followed.listener);
  EXPECT_TRUE(followed.listener.take().contains(followed.home.root + "/a"));
}

TEST(Journal, ThatCannotBeMadeGivesNoStreamAndSaysWhy) {
  EventHome home;
  home.temp.file("state");
  LinuxEvents events(home.threads, home.folders, home.log);
  Listener listener(events, home.root, events.currentEventId());
  EXPECT_FALSE(listener.begun());
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

TEST(Journal, DropsRootsThatNobodyAskedForInALongTime) {
  EventHome home;
  SetClock clock;
  constexpr std::int64_t kDay = 86'400'000'000;
  clock.shift(-200 * kDay);
  {
    LinuxEvents events(home.threads, home.folders, home.log, {.clock = &clock});
    (void)historySince(events, home.root, events.currentEventId());
  }
  clock.shift(200 * kDay);
  const std::string other = home.temp.folder("other");
  LinuxEvents events(home.threads, home.folders, home.log, {.clock = &clock});
  (void)historySince(events, other, events.currentEventId());
  EventJournal journal = EventJournal::open(home.folders.state, home.log);
  const auto roots = journal.roots();
  ASSERT_EQ(roots.size(), 1U);
  EXPECT_EQ(roots.front().path, other);
}

}  // namespace
}  // namespace quon::test
