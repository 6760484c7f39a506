#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
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

/// Keeps lines. Threads: any.
class KeptLog final : public Log {
 public:
  void line(std::string_view text) override;
  /// Waits for a line that contains the text; false after half a minute.
  [[nodiscard]] bool waitFor(const std::string& text);
  [[nodiscard]] std::string all();

 private:
  Mutex lock;
  Condition changed;
  std::vector<std::string> lines QUON_GUARDED_BY(lock);
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
  /// On the file system of $TMPDIR, or below a folder of the test's.
  EventHome();

  TempFolder temp;
  std::string root;
  Folders folders;
  LinuxThreads threads;
  KeptLog log;
};

/// A stream of a service and what it delivered. Waits give up after half a minute. Threads: the test's.
class Listener {
 public:
  Listener(EventService& events, const std::string& root, std::uint64_t since, double latency = 0.0);
  ~Listener();

  [[nodiscard]] bool begun() const { return started; }
  [[nodiscard]] bool waitForHistory();
  /// Waits for an event with all of these flags.
  [[nodiscard]] bool waitForFlags(std::uint32_t flags);
  /// Waits for an event on the folder with an identifier above `after`.
  [[nodiscard]] bool waitForFolder(const std::string& path, std::uint64_t after);
  /// What was delivered since the last call, flags joined; without historyDone.
  [[nodiscard]] std::map<std::string, std::uint32_t> take();
  [[nodiscard]] std::vector<FolderEvent> all();
  void stop() { stream->stop(); }

 private:
  [[nodiscard]] bool waitUntil(const std::function<bool(const std::vector<FolderEvent>&)>& reached);

  Mutex lock;
  Condition changed;
  std::vector<FolderEvent> delivered QUON_GUARDED_BY(lock);
  std::size_t taken QUON_GUARDED_BY(lock) = 0;
  ThreadQueue queue;
  std::unique_ptr<EventStream> stream;
  bool started = false;
};

/// A recorder on a thread of its own, as the program quon-recorder runs it.
class RunningRecorder {
 public:
  RunningRecorder(EventHome& home, EventOptions options = {});
  ~RunningRecorder();

 private:
  EventRecorder recorder;
  std::unique_ptr<RunningThread> thread;
};

/// Waits until every change that was made before the call is in the journal, and until the listener has been
/// told all of it: makes a change in a folder below the root, or the root itself, and waits for that.
void settle(EventService& events, const std::string& root, Listener& listener, const std::string& folder);
/// The same with the folder .settled of the root, which is there.
void settle(EventService& events, const std::string& root, Listener& listener);

/// True when this process can mark a whole file system.
[[nodiscard]] bool mayUseFanotify();

/// The history below the root since then, waited for; the flags of each folder.
[[nodiscard]] std::map<std::string, std::uint32_t> historySince(EventService& events, const std::string& root,
                                                                std::uint64_t since);

}  // namespace quon::test
