#include "base/LoopQueue.h"

#include <tuple>
#include <utility>

#include "base/Fatal.h"
#include "base/MainThread.h"

// quit() is remembered as the stop of the loop until the outermost run has ended for it: nested runs each see
// it on their way out, and one that comes just after a run ended on its predicate is not lost but ends the
// next run.

namespace quon {

namespace {

class Nesting {
 public:
  explicit Nesting(int& runs) : depth(runs) { ++depth; }
  ~Nesting() { --depth; }
  Nesting(const Nesting&) = delete;
  Nesting& operator=(const Nesting&) = delete;

 private:
  int& depth;
};

}  // namespace

void LoopQueue::post(std::function<void()> work) {
  loop.post(std::move(work));
}

WorkItem LoopQueue::postAfter(std::chrono::duration<double> delay, std::function<void()> work) {
  return loop.postAfter(delay, std::move(work));
}

bool LoopQueue::isCurrent() const {
  return std::this_thread::get_id() == mainThread;
}

void LoopQueue::run() {
  std::ignore = runUntil([] { return false; });
}

bool LoopQueue::runUntil(const std::function<bool()>& predicate) {
  QUON_CHECK(isCurrent(), "the main queue runs on the thread that made it");
  const Nesting nesting(depth);
  while (!loop.isStopped()) {
    if (predicate()) return true;
    const MainThreadWork mainThreadWork;
    if (!loop.runNext()) break;
  }
  if (depth == 1) loop.resume();
  return false;
}

void LoopQueue::quit() {
  loop.stop();
}

}  // namespace quon
