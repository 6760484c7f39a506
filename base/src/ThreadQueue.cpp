#include "base/ThreadQueue.h"

#include <exception>
#include <fmt/format.h>
#include <new>
#include <utility>

#include "base/Fatal.h"

namespace quon {

namespace {

void runLoop(WorkLoop& loop, const std::function<void()>& onThreadStart) {
  try {
    if (onThreadStart) onThreadStart();
    while (loop.runNext()) {
    }
  } catch (const std::bad_alloc&) {
    endOutOfMemory();
  } catch (const std::exception& error) {
    fatal(fmt::format("uncaught in background work: {}", error.what()));
  } catch (...) {
    fatal("uncaught in background work: not a standard exception");
  }
}

}  // namespace

ThreadQueue::ThreadQueue(std::function<void()> onThreadStart)
    : thread([this, start = std::move(onThreadStart)] { runLoop(loop, start); }) {}

ThreadQueue::~ThreadQueue() {
  QUON_CHECK(std::this_thread::get_id() != thread.get_id(),
             "a background queue was destroyed by its own work");
  loop.stop();
  thread.join();
}

void ThreadQueue::post(std::function<void()> work) {
  loop.post(std::move(work));
}

WorkItem ThreadQueue::postAfter(std::chrono::duration<double> delay, std::function<void()> work) {
  return loop.postAfter(delay, std::move(work));
}

}  // namespace quon
