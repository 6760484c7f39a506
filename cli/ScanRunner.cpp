#include "ScanRunner.h"

#include <chrono>
#include <cstdio>
#include <exception>
#include <fmt/format.h>
#include <optional>
#include <utility>

#include "base/HumanBytes.h"
#include "base/Text.h"
#include "platform/Files.h"
#include "platform/Threads.h"

namespace quon::cli {
namespace {

using Seconds = std::chrono::duration<double>;

constexpr Seconds kProgressInterval{0.2};
/// How long an interrupted scan may take to end in good order.
constexpr Seconds kGrace{0.2};
constexpr std::size_t kScanStack = std::size_t{4} * 1024 * 1024;
constexpr int kInterrupted = 130;

}  // namespace

ScanRunner::ScanRunner(const Platform& services, const Terminal& streams)
    : platform(services), terminal(streams), interrupts([this] { onInterrupt(); }) {}

ScanRunner::~ScanRunner() = default;

FolderScan::Outcome ScanRunner::run(const FolderScan::Options& options) {
  FolderScan running(platform, options);
  std::optional<FolderScan::Outcome> outcome;
  std::exception_ptr failure;
  bool done = false;
  {
    const MutexLock held(lock);
    scan = &running;
  }
  {
    const auto thread = platform.threads.start("quon-scan", kScanStack, [&] {
      try {
        outcome = running.run();
      } catch (...) {
        failure = std::current_exception();
      }
      loop.post([&done] { done = true; });
    });
    scheduleProgress();
    (void)loop.runUntil([&done] { return done; });
  }
  nextProgress.cancel();
  clearProgress();
  {
    const MutexLock held(lock);
    scan = nullptr;
  }
  if (failure) std::rethrow_exception(failure);
  if (outcome->cancelled) throw Interrupted();
  return *std::move(outcome);
}

void ScanRunner::onInterrupt() {
  const MutexLock held(lock);
  if (scan == nullptr) leaveNow(kInterrupted);
  scan->cancel();
  loop.postAfter(kGrace, [this] {
    clearProgress();
    const MutexLock stillRunning(lock);
    const std::string building = scan == nullptr ? std::string() : scan->buildingFile();
    if (!building.empty()) platform.files.remove(building);
    leaveNow(kInterrupted);
  });
}

void ScanRunner::scheduleProgress() {
  if (!terminal.errorIsTerminal) return;
  nextProgress = loop.postAfter(kProgressInterval, [this] {
    showProgress();
    scheduleProgress();
  });
}

void ScanRunner::showProgress() {
  Progress::Snapshot now;
  {
    const MutexLock held(lock);
    now = scan->progress();
  }
  const std::string counts =
      fmt::format("{} dirs · {} files · {}", grouped(now.dirs), grouped(now.files), humanBytes(now.logical));
  const std::size_t used = displayWidth(counts) + 2;
  const std::size_t left = terminal.columns > used + 1 ? terminal.columns - used - 1 : 0;
  fmt::print(stderr, "\r\033[K{}  {}", counts, fitToWidth(displayText(now.currentPath), left));
  std::fflush(stderr);
  progressShown = true;
}

void ScanRunner::clearProgress() {
  if (!progressShown) return;
  fmt::print(stderr, "\r\033[K");
  std::fflush(stderr);
  progressShown = false;
}

}  // namespace quon::cli
