#pragma once

#include "base/Mutex.h"

namespace quon {

/// Many readers or one writer at the scan tree. Background searches and lenses read; whoever changes the tree
/// writes. A writer that waits keeps new readers out, so that it is not starved; a reader never enters twice.
/// Our own, as std::shared_mutex starves writers and absl::Mutex would be a package more for these lines.
/// Threads: any.
class TreeGate {
 public:
  /// Holds the gate for a scope.
  class Reading {
   public:
    explicit Reading(TreeGate& entered) : gate(entered) { gate.enterReader(); }
    ~Reading() { gate.leaveReader(); }
    Reading(const Reading&) = delete;
    Reading& operator=(const Reading&) = delete;

   private:
    TreeGate& gate;
  };
  class Writing {
   public:
    explicit Writing(TreeGate& entered) : gate(entered) { gate.enterWriter(); }
    ~Writing() { gate.leaveWriter(); }
    Writing(const Writing&) = delete;
    Writing& operator=(const Writing&) = delete;

   private:
    TreeGate& gate;
  };

 private:
  void enterReader() {
    const MutexLock held(lock);
    while (writing || waiting > 0) cond.wait(lock);
    ++readers;
  }
  void leaveReader() {
    const MutexLock held(lock);
    if (--readers == 0) cond.broadcast();
  }
  void enterWriter() {
    const MutexLock held(lock);
    ++waiting;
    while (writing || readers > 0) cond.wait(lock);
    --waiting;
    writing = true;
  }
  void leaveWriter() {
    const MutexLock held(lock);
    writing = false;
    cond.broadcast();
  }

  Mutex lock;
  Condition cond;
  int readers QUON_GUARDED_BY(lock) = 0;
  bool writing QUON_GUARDED_BY(lock) = false;
  int waiting QUON_GUARDED_BY(lock) = 0;  ///< writers
};

}  // namespace quon
