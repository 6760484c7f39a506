#include <csignal>
#include <filesystem>
#include <iterator>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <set>
#include <string>
#include <thread>
#include <unistd.h>

#include "QuonProcess.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;
using testing::AllOf;
using testing::HasSubstr;
using testing::SizeIs;

class TrashCommand : public testing::Test {
 protected:
  TrashCommand() {
    // On one file system with what is trashed, so that the trash is the home folder's.
    quon.environment["XDG_DATA_HOME"] = quon.folder.folder("tree/home/data");
    quon.environment["HOME"] = quon.folder.folder("tree/home");
    film = quon.folder.file("tree/films/a film.mp4", 300'000);
    second = quon.folder.file("tree/second", 5000);
  }
  [[nodiscard]] std::string trashed(const std::string& name) const {
    return quon.environment.at("XDG_DATA_HOME") + "/Trash/files/" + name;
  }
  /// What the command said on a terminal.
  std::string on(const std::string& answer, const Arguments& arguments) const {
    Descriptor terminal;
    Running running = quon.startOnTerminal(arguments, 100, terminal);
    EXPECT_EQ(::write(terminal.get(), answer.data(), answer.size()), static_cast<ssize_t>(answer.size()));
    std::string text = everythingFrom(terminal);
    EXPECT_EQ(running.wait().status, 0) << text;
    return text;
  }

  Quon quon;
  std::string film;
  std::string second;
};

TEST_F(TrashCommand, AsksOnATerminalAndElsewhereWantsToBeSure) {
  const Finished silent = quon.run({"trash", film});
  EXPECT_EQ(silent.status, 2);
  EXPECT_THAT(silent.err, HasSubstr("add --yes"));
  EXPECT_EQ(quon.run({"trash"}).status, 2);
  EXPECT_EQ(quon.run({"trash", "--list", film}).status, 2);
  if (!canMakeTerminals()) GTEST_SKIP() << "no pseudo-terminals here";
  EXPECT_THAT(on("n\n", {"trash", film}), AllOf(HasSubstr("a film.mp4"), HasSubstr("Move 1 item to the trash?"),
                                                HasSubstr("Nothing was moved.")));
  EXPECT_TRUE(fs::exists(film));
  EXPECT_THAT(on("y\n", {"trash", film}), HasSubstr("trashed a film.mp4 — "));
  EXPECT_FALSE(fs::exists(film));
  EXPECT_TRUE(fs::exists(trashed("a film.mp4")));
}

TEST_F(TrashCommand, TakesNamesAsTheyAre) {
  quon.workingFolder = quon.folder.folder("tree/place");
  const std::string named = quon.folder.file("tree/place/~/junk", 10);
  const std::string precious = quon.folder.file("tree/home/junk", 10);
  EXPECT_EQ(quon.run({"trash", "--yes", "~/junk"}).status, 0);
  EXPECT_FALSE(fs::exists(named));
  EXPECT_TRUE(fs::exists(precious)) << "the shell has expanded what was to be expanded";
  for (const char* pattern : {".", "..", "../place/.", "../place/..", ""}) {
    EXPECT_EQ(quon.run({"trash", "--yes", pattern}).status, 1) << pattern;
  }
  EXPECT_TRUE(fs::exists(quon.workingFolder));
  quon.environment["XDG_DATA_HOME"] = "relative";
  const Json moved = quon.document({"trash", "--yes", "~"});
  EXPECT_EQ(moved["items"][0]["trashedTo"], quon.environment.at("HOME") + "/.local/share/Trash/files/~");
}

TEST_F(TrashCommand, WhenInterruptedTellsWhatItMoved) {
  Arguments arguments{"trash", "--yes", "--json"};
  for (int count = 0; count < 3000; ++count) arguments.push_back(quon.folder.file("tree/many/" + std::to_string(count), 1));
  Running running = quon.start(arguments);
  while (!fs::exists(trashed("0")) && !running.hasEnded()) std::this_thread::yield();
  running.signal(SIGINT);
  const Finished run = running.wait();
  const Json document = run.document();
  const std::size_t moved = document["items"].size();
  EXPECT_EQ(moved + document["untried"].get<std::size_t>(), 3000U);
  EXPECT_EQ(run.status, document["untried"] == 0 ? 0 : 130);
  EXPECT_EQ(std::distance(fs::directory_iterator(trashed("")), fs::directory_iterator()), static_cast<std::ptrdiff_t>(moved));
}

TEST_F(TrashCommand, OfSeveralTellsWhatFailedAndEveryAnswerIsRightAfterwards) {
  ASSERT_EQ(quon.run({"scan", quon.tree}).status, 0);
  fs::create_symlink(film, quon.tree + "/link");
  const Finished run = quon.run({"trash", "--yes", "--json", quon.tree + "/films", film, second, quon.tree + "/link/",
                                 quon.tree + "/none", quon.tree + "/home", "/"});
  EXPECT_EQ(run.status, 1);
  const Json document = run.document();
  EXPECT_THAT(document["items"], SizeIs(3));
  std::set<std::string> reasons;
  for (const Json& failure : document["failed"]) reasons.insert(failure["reason"]);
  EXPECT_EQ(reasons, (std::set<std::string>{"no such file or folder", "it is the home folder",
                                            "it is the root of the file system"}));
  EXPECT_THAT(linesOf(run.err), SizeIs(3));
  EXPECT_TRUE(fs::exists(trashed("films/a film.mp4")) && fs::is_symlink(trashed("link")));
  const Json list = quon.document({"trash", "--list"});
  ASSERT_THAT(list["trashes"], SizeIs(1));
  EXPECT_THAT(list["trashes"][0]["items"], SizeIs(3));
  EXPECT_EQ(list["trashes"][0]["freed"], document["freed"]);
  const Json after = quon.document({"ls", quon.tree});
  Json fresh = quon.document({"scan", "--no-index", quon.tree});
  EXPECT_EQ(after["logical"], fresh["logical"]);
  EXPECT_EQ(after["files"], fresh["files"]);
}

}  // namespace
}  // namespace quon::test
