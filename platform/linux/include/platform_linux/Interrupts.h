#pragma once

#include <functional>
#include <memory>

namespace quon {

/// Turns SIGINT, SIGTERM and SIGHUP, those of them that are not ignored already, into a call on a thread of its own, so that the handler may lock and
/// allocate. Made by main before any other thread starts: the signals are blocked in every thread made later.
class Interrupts {
 public:
  /// `onInterrupt` is called for every such signal until destruction.
  explicit Interrupts(std::function<void()> onInterrupt);
  ~Interrupts();
  Interrupts(const Interrupts&) = delete;
  Interrupts& operator=(const Interrupts&) = delete;

 private:
  struct Listener;
  std::unique_ptr<Listener> listener;
};

/// Ends the process at once with the given status, without destructors: for an interrupted command whose
/// threads sit in a system call that does not return.
[[noreturn]] void leaveNow(int status);

}  // namespace quon
