#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

// Annotations that Clang's -Wthread-safety checks; other compilers see nothing.
#if defined(__clang__)
#define QUON_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define QUON_THREAD_ANNOTATION(x)
#endif
#define QUON_GUARDED_BY(mutex) QUON_THREAD_ANNOTATION(guarded_by(mutex))
#define QUON_REQUIRES(...) QUON_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define QUON_EXCLUDES(...) QUON_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))

namespace quon {

/// A non-recursive mutex that names what it guards: fields say QUON_GUARDED_BY(lock).
class QUON_THREAD_ANNOTATION(capability("mutex")) Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void lock() QUON_THREAD_ANNOTATION(acquire_capability()) { mutex.lock(); }
  void unlock() QUON_THREAD_ANNOTATION(release_capability()) { mutex.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex;
};

/// Holds a Mutex for a scope.
class QUON_THREAD_ANNOTATION(scoped_lockable) MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) QUON_THREAD_ANNOTATION(acquire_capability(mutex)) : held(mutex) {
    held.lock();
  }
  ~MutexLock() QUON_THREAD_ANNOTATION(release_capability()) { held.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& held;
};

/// A condition variable over a Mutex. Waits may wake without reason: callers loop over their condition.
class Condition {
 public:
  void wait(Mutex& mutex) QUON_REQUIRES(mutex) {
    std::unique_lock<std::mutex> adopted(mutex.mutex, std::adopt_lock);
    condition.wait(adopted);
    adopted.release();
  }
  void waitUntil(Mutex& mutex, std::chrono::steady_clock::time_point deadline) QUON_REQUIRES(mutex) {
    std::unique_lock<std::mutex> adopted(mutex.mutex, std::adopt_lock);
    condition.wait_until(adopted, deadline);
    adopted.release();
  }
  void signal() { condition.notify_one(); }
  void broadcast() { condition.notify_all(); }

 private:
  std::condition_variable condition;
};

}  // namespace quon
