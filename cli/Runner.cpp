#include "Runner.h"

#include <chrono>
#include <cstdio>
#include <fmt/format.h>
#include <system_error>
#include <utility>

#include "base/Text.h"
#include "platform/Files.h"
#include "platform_linux/Interrupts.h"

namespace quon::cli {
namespace {

constexpr int kInterrupted = 130;
/// How long an interrupted scan may take to end in good order.
constexpr std::chrono::duration<double> kGrace{0.2};

}  // namespace

Runner::Runner(const Platform& services, const Terminal& streams, LoopQueue& queue, AppModel& driven)
    : platform(services), terminal(streams), loop(queue), model(driven) {
  if (!terminal.errorIsTerminal) return;
  place = model._scanPath.observe([this](const std::string&) { showProgress(); });
}

void Runner::wait() {
  waiting = true;
  (void)loop.runUntil([this] { return !model.isBusy() || model.lastRun.cancelled || graceOver; });
  waiting = false;
  clearProgress();
  if (graceOver) leave();
  if (model.lastRun.cancelled) throw Interrupted();
}

void Runner::run(const std::function<void()>& work, std::function<void()> stop) {
  struct Stoppable {
    Stoppable(Runner& owner, std::function<void()> end) : runner(owner) { set(std::move(end)); }
    ~Stoppable() { set(nullptr); }
    Stoppable(const Stoppable&) = delete;
    Stoppable& operator=(const Stoppable&) = delete;
    void set(std::function<void()> end) {
      const MutexLock held(runner.lock);
      runner.stopWork = std::move(end);
    }
    Runner& runner;
  };
  {
    const Stoppable stoppable(*this, std::move(stop));
    work();
  }
  if (stopped) throw Interrupted();
}

void Runner::onInterrupt() {
  {
    // What `stop` refers to lives as long as it stands here.
    const MutexLock held(lock);
    if (const auto stop = std::exchange(stopWork, nullptr)) {
      stopped = true;
      return stop();
    }
  }
  if (!waiting) leave();  // a scan may have begun that is not waited for yet
  model.cancel();
  loop.postAfter(kGrace, [this] { graceOver = true; });
}

void Runner::setUnfinished(const std::string& file) {
  const MutexLock held(lock);
  unfinished = file;
}

void Runner::leave() {
  try {
    const MutexLock held(lock);
    for (const std::string& file : {model.buildingFile(), unfinished}) {
      if (!file.empty()) platform.files.remove(file);
    }
  } catch (const std::system_error&) {
    // Its folder has become read-only, say; the next scan's sweep finds it.
  }
  leaveNow(kInterrupted);
}

void Runner::showProgress() {
  const std::string& counts = model._scanStats.get();
  if (model._scanPath.get().empty()) return;
  const std::size_t used = displayWidth(counts) + 2;
  const std::size_t left = terminal.columns > used + 1 ? terminal.columns - used - 1 : 0;
  fmt::print(stderr, "\r\033[K{}  {}", counts, fitToWidth(displayText(model._scanPath.get()), left));
  std::fflush(stderr);
  progressShown = true;
}

void Runner::clearProgress() {
  if (!progressShown) return;
  fmt::print(stderr, "\r\033[K");
  std::fflush(stderr);
  progressShown = false;
}

}  // namespace quon::cli
