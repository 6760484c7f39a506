#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "base/Log.h"
#include "base/Mutex.h"
#include "base/ThreadQueue.h"
#include "events/EventClock.h"
#include "events/EventRecorder.h"
#include "events/LinuxEvents.h"
#include "platform/Events.h"
#include "platform/Folders.h"
#include "platform_linux/LinuxThreads.h"
#include "support/TempFolder.h"

namespace quon::test {

/// So long that no load of the machine reaches it: only what never comes is given up.
constexpr std::chrono::seconds kGiveUpAfter{240};

/// Keeps lines. Threads: any.
class KeptLog final : public Log {
 public:
  void line(std::string_view text) override;
  [[nodiscard]] std::string all();

 private:
  Mutex lock;
  std::string lines QUON_GUARDED_BY(lock);
};

/// A clock that a test sets. Threads: any.
class SetClock final : public EventClock {
 public:
  [[nodiscard]] std::uint64_t wallMicros() const override { return system.wallMicros() + offset.load(); }
  [[nodiscard]] std::uint64_t steadyMicros() const override { return system.steadyMicros(); }
  void shift(std::int64_t micros) { offset += static_cast<std::uint64_t>(micros); }

 private:
  SystemEventClock system;
  std::atomic<std::uint64_t> offset{0};
};

/// A user's home for one test: own folders, and a root to watch.
struct EventHome {
  /// On the file system of $TMPDIR.
  EventHome();

  [[nodiscard]] std::string at(const std::string& name) const { return root + "/" + name; }

  TempFolder temp;
  std::string root;
  Folders folders;
  LinuxThreads threads;
  KeptLog log;
};

/// The folders that were reported, with the flags of their events joined.
using Reported = std::map<std::string, std::uint32_t>;

/// A stream of a service and what it delivered. Threads: the test's.
class Listener {
 public:
  Listener(EventService& events, const std::string& root, std::uint64_t since);
  ~Listener();

  [[nodiscard]] bool begun() const { return started; }
  // These wait for an event: false when it does not come.
  [[nodiscard]] bool waitUntil(const std::function<bool(const FolderEvent&)>& isExpected);
  [[nodiscard]] bool waitForHistory() { return waitForFlags(EventFlag::historyDone); }
  [[nodiscard]] bool waitForFlags(std::uint32_t flags);
  /// Waits for an event that track was lost; its reason.
  [[nodiscard]] std::string waitForLoss();
  /// On the folder, with an identifier above `after`.
  [[nodiscard]] bool waitForFolder(const std::string& path, std::uint64_t after);
  /// What was delivered since the last call, without historyDone.
  [[nodiscard]] Reported take();

 private:
  Mutex lock;
  Condition changed;
  std::vector<FolderEvent> delivered QUON_GUARDED_BY(lock);
  std::size_t taken QUON_GUARDED_BY(lock) = 0;
  ThreadQueue queue;
  std::unique_ptr<EventStream> stream;
  bool started = false;
};

/// A service whose stream of a root is live.
struct Follower {
  explicit Follower(EventHome& home, const EventOptions& options = {});
  Follower(EventHome& home, const EventOptions& options, const std::string& root);

  /// The folders of every change that was made since the last call. Makes a change in the folder (the root's
  /// .settled, which is made when it is missing and not reported) and waits for that.
  [[nodiscard]] Reported changes();
  [[nodiscard]] Reported changesSettledIn(const std::string& folder);

  EventHome& home;
  const std::string root;
  LinuxEvents events;
  const Coverage coverage;
  const std::uint64_t since;
  Listener listener;
  Reported history;
};

/// A recorder on a thread of its own, as the program quon-recorder runs it.
class RunningRecorder {
 public:
  explicit RunningRecorder(EventHome& home, EventOptions options = {});
  ~RunningRecorder();

 private:
  EventRecorder recorder;
  std::unique_ptr<RunningThread> thread;
};

/// Waits until the listener has got every change that was made before the call: makes a change in the folder
/// and waits for that.
void settle(EventService& events, Listener& listener, const std::string& folder);

/// The history below the root since then, waited for.
[[nodiscard]] Reported historySince(EventService& events, const std::string& root, std::uint64_t since);
/// The same by a service that begins and ends with the call.
[[nodiscard]] Reported historySince(EventHome& home, const EventOptions& options, std::uint64_t since);
/// Has the root covered; since when.
std::uint64_t coverRoot(EventHome& home, const EventOptions& options = {});

/// True when track of the root was lost.
[[nodiscard]] bool isLost(const Reported& reported, const std::string& root);

/// True when this process can mark a whole file system.
[[nodiscard]] bool mayUseFanotify();

/// Tests that run once with each back end; fanotify is skipped where it takes privilege that is missing.
class WithBackEnd : public testing::TestWithParam<EventBackEnd> {
 protected:
  void SetUp() override;
  [[nodiscard]] static EventOptions options() { return {.backEnd = GetParam()}; }
};

/// For INSTANTIATE_TEST_SUITE_P.
inline auto eachBackEnd() {
  return testing::Values(EventBackEnd::inotify, EventBackEnd::fanotify);
}
[[nodiscard]] std::string backEndName(const testing::TestParamInfo<EventBackEnd>& tested);

}  // namespace quon::test
