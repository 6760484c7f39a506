#pragma once

#include <cstddef>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <vector>

namespace quon {

/// Runs the operations of a model and, when the outermost one has ended, the observers of the fields that it
/// really changed: no observer sees a change that is not whole.
///
/// What an observer asks for, an operation or a new value of a field, takes effect after the running round,
/// in the order it was asked for; all observers of a round see the same state. An exception from an operation
/// or an observer is rethrown to the caller of the outermost operation when every round has ended; of
/// several, the first. An observer may destroy the Notifications; the round ends then.
///
/// Threads: main only.
class Notifications {
 public:
  /// A field with observers.
  class Source {
   public:
    virtual ~Source() = default;
    /// Calls the observers, each through `guarded`, if the field still differs from what it was before.
    virtual void notify(const std::function<void(const std::function<void()>&)>& guarded) = 0;
  };

  Notifications();
  ~Notifications();
  Notifications(const Notifications&) = delete;
  Notifications& operator=(const Notifications&) = delete;

  /// Runs the operation: within one that runs already, as a part of it; within a round, after it; else at
  /// once, followed by its observers.
  void perform(std::function<void()> operation);
  /// Runs at the end of every outermost operation, before the observers, as a part of it.
  void setDerivation(std::function<void()> derive);
  /// From now on operations have no derivation and nobody is notified: the owner is being destroyed.
  void end();
  /// True while observers run.
  [[nodiscard]] bool isNotifying() const;
  /// Calls back with the observers of the running operation.
  void announce(std::function<void()> callback);
  /// For fields: the source changed within the running operation.
  void changed(std::shared_ptr<Source> source);

 private:
  struct State;
  std::shared_ptr<State> state;  // a round outlives what its observers destroy
};

}  // namespace quon
