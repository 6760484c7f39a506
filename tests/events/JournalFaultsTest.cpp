// A state folder and a journal file that vanish, are torn, foreign or locked, or cannot be written: recording
// goes on.
#include <filesystem>
#include <fstream>
#include <functional>
#include <gtest/gtest.h>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

#include "EventHome.h"
#include "database/Database.h"
#include "support/ChildProcess.h"

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

TEST(Journal, LostUnderALiveStreamLosesNoEventAndIsMadeAgain) {
  const std::vector<std::pair<const char*, std::function<void(const EventHome&)>>> losses{
      {"file removed", [](const EventHome& home) { fs::remove(journalOf(home)); }},
      {"folder moved away",
       [](const EventHome& home) { fs::rename(home.folders.state, home.temp.at("gone")); }},
      {"file cut to nothing",
       [](const EventHome& home) { ASSERT_EQ(::truncate(journalOf(home).c_str(), 0), 0); }},
      {"socket and lock removed", [](const EventHome& home) {
         for (const char* name : {"recorder.socket", "recorder.lock"})
           fs::remove(home.folders.state + "/" + name);
       }}};
  for (const auto& [name, lose] : losses) {
    SCOPED_TRACE(name);
    EventHome home;
    Follower follower(home);
    expectReport(follower, "before");
    lose(home);
    expectReport(follower, "after");
    expectReport(follower, "later");
    const Reported history = historySince(follower.events, home.root, follower.since);
    EXPECT_TRUE(history.contains(home.at("a")));
    EXPECT_FALSE(isLost(history, home.root)) << home.log.all();
    home.temp.folder("other");
    (void)follower.events.cover(home.temp.at("other"), EventService::CoverMode::wait, {});
    EXPECT_GT(fs::file_size(journalOf(home)), 0U);
  }
}

TEST(Journal, ThatCannotBeReadIsSetAsideAndAnOlderOneBegunAnew) {
  const std::vector<std::tuple<const char*, bool, std::function<void(EventHome&)>>> damages{
      {"no database", true,
       [](EventHome& home) { std::ofstream(journalOf(home)) << std::string(10000, 'j'); }},
      {"another program's", true,
       [](EventHome& home) {
         Database::open(journalOf(home), Database::Mode::create)
             .exec("CREATE TABLE mine(x); INSERT INTO mine VALUES(1)");
       }},
      {"cut in the middle", true,
       [](EventHome& home) {
         (void)coverRoot(home);
         fs::resize_file(journalOf(home), 4096 + 100);
       }},
      {"of an earlier version", false, [](EventHome& home) {
         Database::open(journalOf(home), Database::Mode::create)
             .exec(
                 "PRAGMA journal_mode = WAL; CREATE TABLE requests(x); PRAGMA application_id = 1366650734; "
                 "PRAGMA user_version = 1");
       }}};
  for (const auto& [name, isDamaged, damage] : damages) {
    SCOPED_TRACE(name);
    EventHome home;
    fs::create_directories(home.folders.state);
    damage(home);
    (void)coverRoot(home);
    EXPECT_EQ(fs::exists(journalOf(home) + ".damaged"), isDamaged);
    EXPECT_EQ(home.log.all().find("set aside") != std::string::npos, isDamaged) << home.log.all();
    EXPECT_EQ(Database::open(journalOf(home), Database::Mode::read).number("SELECT count(*) FROM roots"), 1);
  }
}

TEST(Journal, ThatCannotBeWrittenIsReportedOnceWhileEventsGoOn) {
  EventHome home;
  fs::create_directories(journalOf(home));  // a folder in its place
  Follower follower(home);
  for (const char* name : {"one", "two"}) {
    expectReport(follower, name);
    EXPECT_NE(follower.events.cover(home.temp.folder(name), EventService::CoverMode::wait, {}).since, 0U);
  }
  const std::string log = home.log.all();
  const std::size_t first = log.find("cannot write the event journal");
  ASSERT_NE(first, std::string::npos) << log;
  EXPECT_EQ(log.find("cannot write the event journal", first + 1), std::string::npos) << log;
}

TEST(Journal, OnAFullDiskNeedsNoSpaceToServeAndResumeEvents) {
  inPrivateMounts([] {
    EventHome home;
    fs::create_directories(home.folders.state);
    ASSERT_EQ(::mount("tmpfs", home.folders.state.c_str(), "tmpfs", 0, "size=64k,mode=700"), 0);
    const auto fill = [&] {
      std::ofstream out(home.folders.state + "/filler", std::ios::app);
      while (out.put('x').flush()) {
      }
    };
    fill();
    Follower follower(home);
    expectReport(follower, "one");
    fill();
    expectReport(follower, "two");
    const Reported history = historySince(follower.events, home.root, follower.since);
    EXPECT_TRUE(history.contains(home.at("a")));
    EXPECT_FALSE(isLost(history, home.root));
    EXPECT_GE(follower.events.currentEventId(), follower.since);
    EXPECT_NE(home.log.all().find("cannot write the event journal"), std::string::npos) << home.log.all();
  });
}

TEST(Journal, LockedByAnotherProgramKeepsNobodyWaitingAndLosesNoRoot) {
  EventHome home;
  (void)coverRoot(home);
  EventHome elsewhere;
  elsewhere.folders = home.folders;
  {
    Database other = Database::open(journalOf(home), Database::Mode::write);
    other.exec("BEGIN EXCLUSIVE");
    Follower follower(elsewhere);
    expectReport(follower, "one");
    EXPECT_NE(elsewhere.log.all().find("another program has locked it"), std::string::npos);
    other.exec("ROLLBACK");
  }
  EXPECT_EQ(Database::open(journalOf(home), Database::Mode::read).number("SELECT count(*) FROM roots"), 2);
}

TEST(Journal, ForgetsRootsThatNobodyAsksForIn90Days) {
  constexpr std::int64_t kDay = 86'400'000'000;
  EventHome home;
  SetClock clock;
  (void)coverRoot(home, {.clock = &clock});
  clock.shift(91 * kDay);
  EventHome elsewhere;
  elsewhere.folders = home.folders;
  (void)coverRoot(elsewhere, {.clock = &clock});
  Database journal = Database::open(journalOf(home), Database::Mode::read);
  EXPECT_EQ(journal.number("SELECT count(*) FROM roots"), 1);
}

TEST(StateFolder, ThatCannotBeMadeOrIsAnothersGivesNoStreamAndSaysWhy) {
  const auto expectRefusal = [](EventHome& home, const std::string& reason) {
    LinuxEvents events(home.threads, home.folders, home.log);
    EXPECT_FALSE(Listener(events, home.root, events.currentEventId()).begun());
    const Coverage coverage = events.cover(home.root, EventService::CoverMode::wait, {});
    EXPECT_EQ(coverage.since, 0U);
    EXPECT_NE(coverage.reason.find(reason), std::string::npos) << coverage.reason;
    EXPECT_NE(home.log.all().find(reason), std::string::npos) << home.log.all();
  };
  EventHome blocked;
  blocked.temp.file("state");
  expectRefusal(blocked, "cannot create folder");
  if (::getuid() != 0) GTEST_SKIP() << "takes root, to give a folder away";
  EventHome anothers;
  fs::create_directories(anothers.folders.state);
  ASSERT_EQ(::chown(anothers.folders.state.c_str(), 65534, 65534), 0);
  expectRefusal(anothers, "another user owns");
}

}  // namespace
}  // namespace quon::test
