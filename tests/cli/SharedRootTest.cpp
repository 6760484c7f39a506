// Several programs on one root: two that watch it, one that asks at random, and a recorder, while files
// change at random and programs are killed, the disk of the indexes is full, the root is mounted anew. What
// the third program answers after each burst of edits, what the watching ones show, and the index, are held
// against a scan by a program that shares nothing with them.
//
// QUON_SOAK_SECONDS makes it run longer; QUON_SOAK_ON ("xfs user", say) chooses what is otherwise drawn.
#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <iostream>
#include <memory>
#include <optional>
#include <random>
#include <sched.h>
#include <set>
#include <sstream>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "QuonProcess.h"
#include "SharedRootParts.h"
#include "base/HumanBytes.h"
#include "support/ChildProcess.h"
#include "support/IndexComparison.h"
#include "support/RawIndex.h"
#include "support/Seed.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

constexpr uid_t kNobody = 65534;
constexpr int kFirstEntries = 120;
constexpr std::size_t kMostEntries = 1200;
constexpr std::size_t kEditsShown = 60;
/// How long a program may be silent before it counts as stuck, on however busy a machine.
constexpr std::chrono::seconds kGiveUpAfter{120};
/// A program that was overtaken may have taken over a mark without a report of it: then comes another one.
constexpr std::chrono::seconds kNextMarkAfter{10};
constexpr std::chrono::seconds kReportEvery{60};

std::string fromEnvironment(const char* name, const std::string& usual) {
  const char* given = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nothing sets variables
  return given == nullptr ? usual : given;
}

/// The root, the programs, and what is known of both.
class SharedRoot {
 public:
  SharedRoot(const std::string& fileSystem, uid_t who, std::uint64_t seed)
      : user(who),
        random(seed),
        images(),
        disk(fileSystem, images.path, quon.tree),
        data(quon.environment.at("XDG_DATA_HOME")) {
    quon.user = fresh.user = user;
  }
  ~SharedRoot() {
    watchers = {};
    recorder.reset();
    ::umount2(data.c_str(), MNT_DETACH);
  }
  SharedRoot(const SharedRoot&) = delete;
  SharedRoot& operator=(const SharedRoot&) = delete;

  /// False where the file system cannot be made.
  [[nodiscard]] bool begin(std::uint64_t seed) {
    if (!disk.make() || ::mount("tmpfs", data.c_str(), "tmpfs", 0, "size=8m,mode=0700") != 0) return false;
    giveTo(user, quon.folder.path);
    giveTo(user, fresh.folder.path);
    editor.emplace(quon.tree, seed,
                   user == 0 ? TreeEditor::Permissions::kept : TreeEditor::Permissions::edited);
    populate();
    (void)quon.document({"scan", quon.tree});
    startRecorder();
    return true;
  }

  void run(std::chrono::seconds longest) {
    const auto until = Clock::now() + longest;
    auto nextReport = Clock::now() + kReportEvery;
    do {
      ASSERT_NO_FATAL_FAILURE(round());
      if (Clock::now() < nextReport) continue;
      report();
      nextReport += kReportEvery;
    } while (Clock::now() < until);
    report();
  }

 private:
  void round() {
    const std::uint64_t bursts = 1 + draw(6);
    for (std::uint64_t each = 0; each < bursts; ++each) {
      ASSERT_NO_FATAL_FAILURE(burst());
      ASSERT_NO_FATAL_FAILURE(check());
      ASSERT_NO_FATAL_FAILURE(trouble());
    }
    ASSERT_NO_FATAL_FAILURE(burst());
    ASSERT_NO_FATAL_FAILURE(check());
    settle();
  }

  void burst() {
    std::unique_ptr<Running> meanwhile;
    if (draw(2) == 0) meanwhile = started(quon, drawnCommand());
    {
      const Acting acting(user);
      if (entries() > kMostEntries) {
        happen("all is removed and other files are made");
        populate();
      }
      const std::uint64_t count = 5 + draw(60);
      for (std::uint64_t made = 0; made < count; ++made) editor->edit();
      edits += count;
    }
    if (meanwhile) {
      const Finished done = meanwhile->wait();
      ASSERT_TRUE(done.status == 0 || isFull) << "while files change: " << done.err << story();
    }
  }

  /// What the third program answers, and the index that it leaves, against a scan of this moment.
  void check() {
    const Json truth = fresh.document({"scan", quon.tree});
    ASSERT_NO_FATAL_FAILURE(ask({"ls", quon.tree}));
    ASSERT_NO_FATAL_FAILURE(compareIndex(truth.at("index")));
    ASSERT_NO_FATAL_FAILURE(ask(drawnCommand()));
    ASSERT_NO_FATAL_FAILURE(compareIndex(truth.at("index")));
    files = truth.at("files");
    logical = truth.at("logical");
    if (!isFull) (void)editor->takeEvents();  // else the next command begins from the same index
    for (auto& watcher : watchers) watcher->drain();
    ++checks;
  }

  /// Waits until both watching programs have taken in all edits.
  void settle() {
    for (std::size_t which = 0; which < watchers.size(); ++which) ASSERT_NO_FATAL_FAILURE(settle(which));
    ++settled;
  }

  void trouble() {
    switch (draw(disk.canMove() ? 5 : 4)) {
      case 0:
        happen("the recorder is killed");
        endRecorder();
        break;
      case 1:
        if (recorder) break;
        happen("a recorder starts, then the watchers");
        ASSERT_NO_FATAL_FAILURE(startRecorder());
        break;
      case 2: {
        const std::size_t which = draw(watchers.size());
        happen("watcher " + std::to_string(which) + " is killed and started again");
        watchers[which].reset();
        startWatcher(which);
        break;
      }
      case 3:
        happen(isFull ? "there is space on the disk again" : "the disk is full");
        isFull ? empty() : fill();
        break;
      default:
        happen("the root is mounted anew");
        remount();
    }
  }

  void empty() {
    ::unlink((data + "/filler").c_str());
    isFull = false;
  }

  void report() {
    Usage all = usage;
    if (recorder) all.add(recorder->process->id(), recorder->begun);
    std::cout << edits << " edits, " << checks << " checks, " << settled << " times settled, " << troubles
              << " troubles; recorders: " << all.cpuSeconds << " s of CPU in " << all.seconds << " s, "
              << all.peakKilobytes << " KB, " << all.written << " bytes written, " << all.stored
              << " of them to a disk" << std::endl;
  }

  void populate() {
    const Acting acting(user);
    for (const auto& entry : fs::directory_iterator(quon.tree)) {
      if (fs::is_directory(entry.symlink_status())) {
        removeTree(entry.path().string());
      } else {
        fs::remove(entry.path());
      }
    }
    editor->populate(kFirstEntries);
    edits += kFirstEntries;
  }

  [[nodiscard]] std::size_t entries() const {
    const auto all =
        fs::recursive_directory_iterator(quon.tree, fs::directory_options::skip_permission_denied);
    return static_cast<std::size_t>(std::distance(fs::begin(all), fs::end(all)));
  }

  [[nodiscard]] std::uint64_t draw(std::uint64_t bound) { return random() % bound; }
  [[nodiscard]] Arguments drawnCommand() {
    static const std::array<std::string, 3> kVerbs{"ls", "scan", "largest"};
    Arguments words{kVerbs[draw(kVerbs.size())], quon.tree, "--json"};
    return words;
  }

  /// Whoever watches records as well while no other does, so it has to begin after the recorder.
  void startRecorder() {
    watchers = {};
    recorder = std::make_unique<Following>(quon, "record", Arguments{"record", "--json"});
    ASSERT_TRUE(recorder->line(kGiveUpAfter)) << recorder->process->wait().err << story();
    for (std::size_t which = 0; which < watchers.size(); ++which) startWatcher(which);
  }
  void endRecorder() {
    if (recorder) usage.add(recorder->process->id(), recorder->begun);
    recorder.reset();
  }
  void startWatcher(std::size_t which) {
    Arguments words{"watch", quon.tree};
    if (draw(4) == 0) words.emplace_back("--json");  // which says less of what it shows
    watchers[which] = std::make_unique<Following>(quon, "watch-" + std::to_string(which), words);
  }

  void fill() {
    const Descriptor filler(::open((data + "/filler").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    const std::string zeros(4096, '\0');
    while (::write(filler.get(), zeros.data(), zeros.size()) > 0) {
    }
    isFull = true;
  }

  /// The programs may have a folder of it open for a moment.
  void remount() {
    const auto until = Clock::now() + std::chrono::seconds(5);
    while (!disk.unmount()) {
      ASSERT_LT(Clock::now(), until + kGiveUpAfter) << "the root stays in use" << story();
      if (Clock::now() > until) {
        watchers = {};
        endRecorder();
      }
      ::sched_yield();
    }
    ASSERT_TRUE(disk.mountRenumbered());
    mayEnd = true;
    if (!watchers[0]) {
      for (std::size_t which = 0; which < watchers.size(); ++which) startWatcher(which);
    }
  }

  void ask(Arguments words) {
    if (words.back() != "--json") words.emplace_back("--json");
    const Finished done = quon.run(words);
    const bool mayFail = isFull && words[0] == "scan";  // it could not save
    ASSERT_TRUE(done.status == 0 || (mayFail && done.status == 1)) << words[0] << ": " << done.err << story();
    Arguments same{words[0] == "scan" ? "ls" : words[0], quon.tree, "--no-catch-up"};
    const Json expected = fresh.document(same);
    const Json answer = done.document();
    for (const char* figure : {"files", "dirs", "logical", "physical"}) {
      ASSERT_EQ(answer.at(figure), expected.at(figure)) << words[0] << ": " << figure << story();
    }
    if (words[0] == "scan") return;
    ASSERT_EQ(kindsOf(answer), kindsOf(expected)) << words[0] << story();
  }

  /// Which name of a multiply-linked file is counted is free, and so are the sizes of the folders that
  /// contain them.
  static std::multiset<std::string> kindsOf(const Json& answer) {
    std::multiset<std::string> rows;
    for (const Json& row : answer.at("rows")) {
      const std::string kind = row.at("kind");
      if (kind == "dir") rows.insert(kind + " " + row.at("name").get<std::string>());
    }
    return rows;
  }

  /// A copy made in one read: programs go on writing.
  void compareIndex(const std::string& expected) {
    if (isFull) return;
    std::string index;
    const Json saved = quon.document({"indexes"});
    for (const Json& row : saved.at("rows")) {
      const std::string file = row.at("url");  // that of an absent disk has "@" in its name
      if (row.at("root") == quon.tree && fs::path(file).filename().string().find('@') == std::string::npos) {
        index = file;
      }
    }
    ASSERT_NE(index, "") << saved << story();
    const std::string copy = images.at("copy");
    fs::remove(copy);
    {
      RawIndex original(index);
      original.exec("PRAGMA busy_timeout = 60000; VACUUM INTO '" + copy + "'");
    }
    const std::string found = differences(copy, expected, user == 0 ? SoleNames::asStored : SoleNames::alike);
    ASSERT_EQ(found, "") << story();
  }

  void makeMark() {
    const Acting acting(user);
    const std::string path = quon.tree + "/.mark" + std::to_string(marks++);
    const Descriptor file(::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0644));
    if (!file.isOpen()) throw std::runtime_error(path);
    ++files;
    markedAt = std::chrono::duration_cast<std::chrono::microseconds>(
                   std::chrono::system_clock::now().time_since_epoch())
                   .count();
  }

  void settle(std::size_t which) {
    const auto until = Clock::now() + kGiveUpAfter;
    while (true) {
      makeMark();
      const auto nextMark = Clock::now() + kNextMarkAfter;
      while (Clock::now() < nextMark) {
        Following& watcher = *watchers[which];
        const auto line = watcher.line(std::chrono::seconds(1));
        if (line && isSettled(*line)) return;
        if (!watcher.atEnd) continue;
        const Finished done = watcher.process->wait();
        ASSERT_TRUE(mayEnd && done.status == 1)
            << "a watcher ended by itself with " << done.status << ": " << done.err << story();
        happen("watcher " + std::to_string(which) + " has ended: " + done.err);
        startWatcher(which);
      }
      ASSERT_LT(Clock::now(), until) << "watcher " << which << " does not come to " << shownTotals()
                                     << "; its last line: " << watchers[which]->last << story();
    }
  }

  [[nodiscard]] std::string shownTotals() const {
    return ": " + grouped(files) + (files == 1 ? " file, " : " files, ") + humanBytes(logical);
  }

  /// The text of a watcher says what its tree contains, and its documents which folders it has read.
  [[nodiscard]] bool isSettled(const std::string& line) const {
    if (!line.starts_with('{')) return line.find(shownTotals()) != std::string::npos;
    const Json document = Json::parse(line);
    if (document.at("event") != "applied" || document.at("eventId") < markedAt) return false;
    return std::ranges::any_of(document.at("changedDirs"),
                               [&](const Json& path) { return path == quon.tree; });
  }

  void happen(const std::string& what) {
    events.push_back(std::to_string(edits) + ": " + what);
    ++troubles;
  }

  [[nodiscard]] std::string story() const {
    std::string all = "\nafter " + std::to_string(edits) + " edits\n";
    for (std::size_t at = events.size() - std::min<std::size_t>(events.size(), 12); at < events.size();
         ++at) {
      all += events[at] + "\n";
    }
    const auto& log = editor->log();
    for (std::size_t at = log.size() - std::min(log.size(), kEditsShown); at < log.size(); ++at) {
      all += log[at] + "\n";
    }
    return all;
  }

  const uid_t user;
  std::mt19937_64 random;
  Quon quon;
  Quon fresh;
  const TempFolder images;
  Disk disk;
  const std::string data;
  std::optional<TreeEditor> editor;
  std::unique_ptr<Following> recorder;
  std::array<std::unique_ptr<Following>, 2> watchers;
  Usage usage;
  std::vector<std::string> events;
  bool isFull = false;
  bool mayEnd = false;      ///< what it watches has gone for a moment
  std::uint64_t files = 0;  ///< what there is, by the last scan and the marks since
  std::uint64_t logical = 0;
  std::int64_t markedAt = 0;  ///< in microseconds since 1970, like the identifiers of events
  std::uint64_t edits = 0;
  std::uint64_t checks = 0;
  std::uint64_t settled = 0;
  std::uint64_t troubles = 0;
  std::uint64_t marks = 0;
};

TEST(SharedRoot, IsTrueForEveryProgramWhateverHappens) {
  const std::uint64_t seed = randomSeed();
  static const std::array<std::string, 4> kFileSystems{"tmpfs", "ext4", "xfs", "btrfs"};
  std::istringstream where(fromEnvironment(
      "QUON_SOAK_ON", kFileSystems[seed % kFileSystems.size()] + (seed / 8 % 2 == 0 ? " root" : " user")));
  std::string fileSystem;
  std::string user;
  where >> fileSystem >> user;
  std::cout << fileSystem << ", " << user << std::endl;
  inPrivateMounts([&] {
    const TempFolder memory;
    mountTmpfs(memory.path);
    ASSERT_EQ(::chmod(memory.path.c_str(), 01777), 0);
    ASSERT_EQ(::setenv("TMPDIR", memory.path.c_str(), 1), 0);  // NOLINT(concurrency-mt-unsafe)
    {
      SharedRoot shared(fileSystem, user == "user" ? kNobody : 0, seed);
      if (!shared.begin(seed)) GTEST_SKIP() << "no " << fileSystem << " can be mounted here";
      shared.run(std::chrono::seconds(std::stoi(fromEnvironment("QUON_SOAK_SECONDS", "0"))));
    }
    ASSERT_EQ(::umount2(memory.path.c_str(), MNT_DETACH), 0);
  });
}

}  // namespace
}  // namespace quon::test
