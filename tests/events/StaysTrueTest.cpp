// Everything between the kernel and the index at once, with nothing faked: random edits, made while earlier
// ones are being read and written, by way of each back end. The reference is a fresh scan.
#include <algorithm>
#include <cstdlib>
#include <fcntl.h>
#include <functional>
#include <gtest/gtest.h>
#include <iostream>
#include <optional>
#include <string>
#include <sys/mount.h>
#include <sys/stat.h>
#include <thread>
#include <utility>
#include <variant>

#include "EventHome.h"
#include "base/LoopQueue.h"
#include "linux_fs/Descriptor.h"
#include "live/LiveWatcher.h"
#include "live/Reconciliation.h"
#include "live/Refresh.h"
#include "platform_linux/LinuxPlatform.h"
#include "scan/KeptFiles.h"
#include "store/FolderScan.h"
#include "store/ScanStore.h"
#include "support/ChildProcess.h"
#include "support/IndexComparison.h"
#include "support/Seed.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

using Seconds = std::chrono::duration<double>;

constexpr int kFirstEdits = 150;
constexpr Seconds kWindow{0.02};

/// From QUON_MODEL_BURSTS, for long runs by hand.
int roundsPerRun(int usual) {
  const char* wanted = std::getenv("QUON_MODEL_BURSTS");  // NOLINT(concurrency-mt-unsafe)
  return wanted == nullptr ? usual : std::atoi(wanted);
}

std::chrono::duration<double> steadySeconds() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

/// Events without the second for which the watcher lets them gather.
class PromptEvents final : public EventService {
 public:
  explicit PromptEvents(EventService& real) : events(real) {}
  std::unique_ptr<EventStream> create(const EventRequest& request, BackgroundQueue& queue,
                                      Callback callback) override {
    EventRequest prompt = request;
    prompt.latency = Seconds(0);
    return events.create(prompt, queue, std::move(callback));
  }
  std::uint64_t currentEventId() override { return events.currentEventId(); }
  Coverage cover(const std::string& root, CoverMode mode, std::stop_token stopped) override {
    return events.cover(root, mode, std::move(stopped));
  }

 private:
  EventService& events;
};

/// A home whose root is edited, the index of the root, and what a fresh scan of it says.
struct EditedHome {
  EditedHome(std::uint64_t seed, TreeEditor::Permissions permissions)
      : soleNames(permissions == TreeEditor::Permissions::kept ? SoleNames::asStored : SoleNames::alike),
        editor(home.root, seed, permissions) {
    editor.populate(kFirstEdits);
  }

  FolderScan::Outcome scan(const std::string& name) {
    return FolderScan(platform.services(),
                      {.root = RootPath(home.root), .indexDirectory = home.temp.folder(name)})
        .run();
  }
  Loaded load(const std::string& index) { return ScanStore::load(index, RootPath(home.root)); }

  void edit(int count) {
    for (int done = 0; done < count; ++done) editor.edit();
  }
  /// A change by one system call.
  void makeMark() {
    const std::string path = home.root + "/.mark" + std::to_string(marksMade++);
    const Descriptor file(::open(path.c_str(), O_CREAT | O_EXCL | O_RDONLY | O_CLOEXEC, 0644));
    ASSERT_TRUE(file.isOpen());
  }

  /// "" when index and tree equal a fresh scan, else how they differ.
  std::string differencesOf(const DirNode& tree, const std::string& index) {
    (void)editor.takeEvents();
    std::string found = differences(tree, *load(index).result.root);
    found += differences(index, scan("fresh").index, soleNames);
    if (found.empty()) return found;
    const auto& log = editor.log();
    for (std::size_t at = log.size() - std::min<std::size_t>(log.size(), 100); at < log.size(); ++at) {
      found += log[at] + "\n";
    }
    return found + home.log.all();
  }

  /// A name can go while its folder is closed; then no event says that the other name is the last.
  const SoleNames soleNames;
  EventHome home;
  TreeEditor editor;
  int marksMade = 0;
  const LinuxPlatform platform;
};

void expectLiveUpdatesToStayTrue(const EventOptions& options, TreeEditor::Permissions permissions) {
  const std::uint64_t seed = randomSeed();
  EditedHome edited(seed, permissions);
  EventHome& home = edited.home;
  LinuxEvents events(home.threads, home.folders, home.log, options);
  ASSERT_NE(events.cover(home.root, EventService::CoverMode::wait, {}).since, 0U) << home.log.all();
  FolderScan::Outcome scanned = edited.scan("kept");
  PromptEvents prompt(events);
  ThreadQueue callbacks;
  ThreadQueue work;
  LoopQueue main;
  std::uint64_t newest = 0;
  std::string failure;
  const LiveWatcher watcher(
      {edited.platform.services(), prompt, callbacks, work,
       [&](std::function<void()> commit) { main.post(std::move(commit)); },
       [&](const LiveWatcher::Event& event) {
         if (const auto* rescan = std::get_if<LiveWatcher::NeedsRescan>(&event)) failure = rescan->reason;
         if (const auto* update = std::get_if<LiveWatcher::Update>(&event))
           newest = update->outcome.newEventId;
       },
       steadySeconds},
      {.index = {.root = RootPath(home.root), .indexURL = scanned.index, .rootDev = scanned.rootDev},
       .tree = scanned.result.root,
       .topFiles = scanned.result.topFiles,
       .sinceEventId = scanned.eventId,
       .revision = scanned.revision,
       .coalesceWindow = kWindow});
  const int rounds = roundsPerRun(8);
  for (int round = 0; round < rounds; ++round) {
    bool done = false;
    std::thread editing([&] {
      edited.edit(20 + static_cast<int>((seed + static_cast<std::uint64_t>(round) * 13) % 60));
      main.post([&] { done = true; });
    });
    (void)main.runUntil([&] { return done; });
    editing.join();
    const std::uint64_t now = events.currentEventId();
    edited.makeMark();
    bool tooLate = false;
    WorkItem deadline = main.postAfter(kGiveUpAfter, [&] { tooLate = true; });
    (void)main.runUntil([&] { return newest > now || !failure.empty() || tooLate; });
    deadline.cancel();
    ASSERT_FALSE(tooLate) << home.log.all();
    ASSERT_EQ(failure, "") << home.log.all();
    ASSERT_EQ(edited.differencesOf(*scanned.result.root, scanned.index), "") << "round " << round;
  }
  std::cout << edited.editor.log().size() << " edits in " << rounds << " rounds\n";
}

void expectLaunchesToBeTrue(const EventOptions& options) {
  constexpr int kLaunchesARecorder = 4;
  const std::uint64_t seed = randomSeed();
  EditedHome edited(seed, TreeEditor::Permissions::kept);
  EventHome& home = edited.home;
  const std::string index = edited.scan("kept").index;
  std::optional<RunningRecorder> recorder;
  const int rounds = roundsPerRun(12);
  for (int round = 0; round < rounds; ++round) {
    const bool isRecorded = round % kLaunchesARecorder != 0;
    if (!isRecorded) {
      recorder.reset();
      recorder.emplace(home, options);
    }
    edited.edit(30);
    LinuxEvents events(home.threads, home.folders, home.log, {.mayRecord = false});
    Loaded loaded = edited.load(index);
    try {
      loaded.result = Refresh::catchUp(edited.platform.services(), events, loaded,
                                       {.index = {.root = RootPath(home.root), .indexURL = index}})
                          .first;
      ASSERT_TRUE(isRecorded) << "what changed before the recorder began cannot be known";
    } catch (const Refresh::Failure& failure) {
      ASSERT_FALSE(isRecorded) << failure.what();
      ASSERT_NE(events.cover(home.root, EventService::CoverMode::wait, {}).since, 0U);
      const std::uint64_t now = events.currentEventId();
      IndexedRoot about{.root = RootPath(home.root), .indexURL = index};
      about = Refresh::presentRoot(edited.platform.services(), about, loaded.disk, loaded.rootDev);
      Refresh::Reconciliation walk(edited.platform.services(), about, 2);
      loaded.result = Refresh::applyChanges(edited.platform.services(), walk.changes(loaded), now, loaded,
                                            {.index = about})
                          .result;
    }
    ASSERT_EQ(edited.differencesOf(*loaded.result.root, index), "") << "round " << round;
  }
  std::cout << edited.editor.log().size() << " edits in " << rounds << " rounds\n";
}

/// On a file system whose files take what they take as soon as they are written. Where blocks are allocated
/// later, a file's size on disk can change after the last event.
void inMemory(const std::function<void()>& body) {
  inPrivateMounts([&] {
    const TempFolder memory;
    mountTmpfs(memory.path);
    ASSERT_EQ(::chmod(memory.path.c_str(), 01777), 0);
    ASSERT_EQ(::setenv("TMPDIR", memory.path.c_str(), 1), 0);  // NOLINT(concurrency-mt-unsafe)
    body();
    ASSERT_EQ(::umount2(memory.path.c_str(), MNT_DETACH), 0);
  });
}

class StaysTrue : public WithBackEnd {};

TEST_P(StaysTrue, WhileFilesChange) {
  inMemory([] { expectLiveUpdatesToStayTrue(options(), TreeEditor::Permissions::kept); });
}

TEST_P(StaysTrue, FromLaunchToLaunchAcrossRecorders) {
  inMemory([] { expectLaunchesToBeTrue(options()); });
}

INSTANTIATE_TEST_SUITE_P(BackEnds, StaysTrue, eachBackEnd(), backEndName);

TEST(StaysTrueForAnOrdinaryUser, WhilePermissionsAreTakenAwayAndGivenBack) {
  inMemory([] {
    asOrdinaryUser([] {
      expectLiveUpdatesToStayTrue({.backEnd = EventBackEnd::inotify}, TreeEditor::Permissions::edited);
    });
  });
}

}  // namespace
}  // namespace quon::test
