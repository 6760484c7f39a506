#pragma once

namespace quon {

/// Marks the calling thread, for a scope, as the one whose work people wait for: it runs the main queue or an
/// operation of the model. Threads: any.
class MainThreadWork {
 public:
  MainThreadWork() { ++depth; }
  ~MainThreadWork() { --depth; }
  MainThreadWork(const MainThreadWork&) = delete;
  MainThreadWork& operator=(const MainThreadWork&) = delete;

  [[nodiscard]] static bool isUnderWay() { return depth > 0; }

 private:
  static inline thread_local int depth = 0;
};

/// For calls that may wait for a disk: stops a debug build when one is made within main-thread work, where it
/// would freeze the window. `call` names it. Threads: any.
#ifdef NDEBUG
inline void requireBackground(const char*) {}
#else
void requireBackground(const char* call);
#endif

}  // namespace quon
