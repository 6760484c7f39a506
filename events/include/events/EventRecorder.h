#pragma once

#include <memory>

#include "events/EventOptions.h"
#include "platform/Folders.h"

namespace quon {

class Log;
class ThreadService;

/// Records the changes below every root that clients have asked for, and serves them to the clients. One
/// recorder a user is at work at any time: the one that has locked the lock file.
///
/// Threads: stop() any; all else one. The thread service and the log outlive it.
class EventRecorder {
 public:
  EventRecorder(const ThreadService& threads, Folders folders, Log& log, EventOptions options = {});
  ~EventRecorder();
  EventRecorder(const EventRecorder&) = delete;
  EventRecorder& operator=(const EventRecorder&) = delete;

  /// False when another process records. Afterwards clients can connect, and are served once run() is called.
  /// Throws std::system_error.
  [[nodiscard]] bool tryBegin();
  /// The same when no other process records any more; false when it was stopped. Throws std::system_error.
  [[nodiscard]] bool waitToBegin();
  /// The process that records now or did last; 0 when unknown.
  [[nodiscard]] int otherRecorder() const;

  /// Records until stop(), after one of the two above. Throws std::system_error.
  void run();
  /// Makes run() and waitToBegin() return soon, now or when they begin. Not undone.
  void stop();

 private:
  struct State;
  std::unique_ptr<State> state;
};

}  // namespace quon
