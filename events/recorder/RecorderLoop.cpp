// One turn: wait; take the news of the state folder, the clock and the mounts; read every root's events and
// follow up; write. Events are read at most every 10 ms and folders written at most every 100 ms while
// changes keep coming, so that a build below a root costs little; after a quiet time the first change is
// written at once. With nothing to do the wait has no end: no timer runs.
//
// poll() rather than an event library's loop: one transaction answers what arrived before a turn that has
// read every queue to its end, and callbacks for each descriptor would have to be put back into that order.
#include "recorder/RecorderLoop.h"

#include <algorithm>
#include <cerrno>
#include <fmt/format.h>
#include <span>
#include <sys/timerfd.h>
#include <system_error>
#include <unistd.h>

#include "base/Log.h"
#include "base/Text.h"
#include "platform/Folders.h"

namespace quon {
namespace {

using namespace std::chrono_literals;

constexpr auto kBetweenReads = 10ms;
constexpr auto kBetweenWrites = 100ms;
constexpr auto kBetweenRetries = 1000ms;
constexpr std::uint64_t kMicrosPerDay = 86'400'000'000;
constexpr std::uint64_t kDaysUnasked = 90;
constexpr std::uint64_t kClockTolerance = 1'000'000;
/// The places of what is always waited for; the roots follow.
enum FixedWait : std::size_t { kWake, kState, kMounts, kClock, kFixedWaits };

/// Wakes when the wall clock is set: it expires in an age, and is cancelled by that.
Descriptor makeClockTimer() {
  Descriptor timer(::timerfd_create(CLOCK_REALTIME, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!timer.isOpen()) throw std::system_error(errno, std::generic_category(), "cannot watch the clock");
  return timer;
}

void armClockTimer(const Descriptor& timer) {
  itimerspec never{};
  never.it_value.tv_sec = std::int64_t{1} << 40;
  ::timerfd_settime(timer.get(), TFD_TIMER_ABSTIME | TFD_TIMER_CANCEL_ON_SET, &never, nullptr);
}

void clearEvents(int descriptor) {
  std::uint64_t count = 0;
  // Nothing to read is as good as read.
  (void)!::read(descriptor, &count, sizeof count);
}

int millisUntil(std::chrono::steady_clock::time_point time) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(time - std::chrono::steady_clock::now());
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

}  // namespace

RecorderLoop::RecorderLoop(const ThreadService& threads, const Folders& folders, Log& lines,
                           const EventOptions& options, const EventClock& source, int wakeDescriptor)
    : stateFolder(folders.state),
      log(lines),
      clock(source),
      own(folders),
      wake(wakeDescriptor),
      stateWatch(stateFolder, StateWatch::Bell::recorder),
      clockTimer(makeClockTimer()),
      ids(clock, 0),
      context{.own = own,
              .clock = clock,
              .ids = ids,
              .log = log,
              .threads = threads,
              .backEnd = options.backEnd,
              .wake = [wakeDescriptor] {
                const std::uint64_t one = 1;
                // An eventfd below its limit takes the write.
                (void)!::write(wakeDescriptor, &one, sizeof one);
              }} {
  armClockTimer(clockTimer);
  journal.emplace(EventJournal::open(stateFolder, log));
  try {
    loadRoots();
  } catch (const DatabaseError& failure) {
    if (!failure.isUnusable()) throw;
    roots.clear();
    journalFailed(failure);
  }
}

RecorderLoop::~RecorderLoop() = default;

void RecorderLoop::loadRoots() {
  const std::uint64_t now = clock.wallMicros();
  std::uint64_t latest = journal->newestId();
  ids.raise(latest);
  for (const WatchedRoot& root : journal->roots()) latest = std::max(latest, root.goodUntil);
  {
    Transaction transaction = journal->begin();
    // The clock was set back while nobody recorded.
    if (latest > now + kClockTolerance) journal->addStep({.low = now, .high = latest});
    journal->prune(now - std::min(now, kDaysUnasked * kMicrosPerDay));
    transaction.commit();
  }
  for (const WatchedRoot& root : journal->roots()) {
    roots.push_back(std::make_unique<RecordedRoot>(context, root));
  }
}

void RecorderLoop::openJournal() {
  journal = EventJournal::open(stateFolder, log);
  ids.raise(journal->newestId());
  for (const auto& root : roots) root->journalReplaced();
  requestsWaiting = true;
  mustRing = true;
}

void RecorderLoop::loadRequests() {
  requestsWaiting = false;
  for (const JournalRequest& request : journal->unanswered()) {
    const auto known = std::ranges::find(roots, request.root, [](const auto& root) { return root->path(); });
    if (known == roots.end()) {
      WatchedRoot unknown;
      unknown.path = request.root;
      roots.push_back(std::make_unique<RecordedRoot>(context, journal->root(request.root).value_or(unknown)));
      roots.back()->ask(request, turnNumber);
    } else {
      (*known)->ask(request, turnNumber);
    }
  }
}

int RecorderLoop::timeout() const {
  const auto now = Clock::now();
  if (readNow || std::ranges::any_of(roots, [](const auto& root) { return root->isBusy(); })) return 0;
  std::optional<Clock::time_point> next = retry;
  const auto consider = [&](Clock::time_point time) { next = std::min(next.value_or(time), time); };
  if (nextRead > now) consider(nextRead);
  if (!retry && !changes.empty()) consider(nextWrite);
  return next ? millisUntil(*next) : -1;
}

bool RecorderLoop::wait() {
  waits.clear();
  waits.resize(kFixedWaits);
  waits[kWake] = {wake, POLLIN, 0};
  waits[kState] = {stateWatch.descriptor(), POLLIN, 0};
  waits[kMounts] = {mountTable.descriptor(), POLLPRI, 0};
  waits[kClock] = {clockTimer.get(), POLLIN, 0};
  if (Clock::now() >= nextRead) {
    for (const auto& root : roots) {
      if (root->descriptor() >= 0) waits.push_back({root->descriptor(), POLLIN, 0});
    }
  }
  const int ready = ::poll(waits.data(), waits.size(), timeout());
  if (ready < 0 && errno != EINTR)
    throw std::system_error(errno, std::generic_category(), "cannot wait for file-system events");
  return ready > 0;
}

bool RecorderLoop::readState() {
  const StateWatch::News news = stateWatch.read();
  if (news.folderGone || news.lockReplaced) return false;
  if (news.journalReplaced && journal && !journal->isCurrent()) journal.reset();
  if (news.rung) requestsWaiting = true;
  return true;
}

void RecorderLoop::noticeClock() {
  if (const auto step = ids.noticeStep()) {
    steps.push_back(*step);
    for (const auto& root : roots) root->clockStepped(*step);
  }
}

void RecorderLoop::followRoots() {
  bool sweeping = std::ranges::any_of(roots, [](const auto& root) { return root->isSweeping(); });
  for (const auto& root : roots) {
    root->drain(turnNumber);
    root->advance(*journal, !sweeping);
    root->collect(changes);
    sweeping = sweeping || root->isSweeping();
  }
  // One after the other; the end of a sweep wakes the loop.
  if (!sweeping && std::ranges::any_of(roots, [](const auto& root) { return root->isWaiting(); }))
    readNow = true;
}

/// Takes what the wait has ended for; true when it concerns the roots' events.
bool RecorderLoop::takeWaits() {
  bool rootsReady = false;
  if ((waits[kWake].revents & POLLIN) != 0) {
    clearEvents(wake);
    rootsReady = true;
  }
  if ((waits[kMounts].revents & (POLLPRI | POLLERR)) != 0) {
    const std::vector<std::string> points = mountTable.changes();
    for (const auto& root : roots) root->mountsChanged(points);
    rootsReady = true;
  }
  if ((waits[kClock].revents & POLLIN) != 0) {
    clearEvents(clockTimer.get());
    armClockTimer(clockTimer);
  }
  const auto ofRoots = std::span(waits).subspan(kFixedWaits);
  return rootsReady || std::ranges::any_of(ofRoots, [](const pollfd& each) { return each.revents != 0; });
}

bool RecorderLoop::turn() {
  const bool ended = wait();
  ++turnNumber;
  bool rootsReady = std::exchange(readNow, false);
  if (ended) {
    if ((waits[kState].revents & POLLIN) != 0 && !readState()) return false;
    if (takeWaits()) rootsReady = true;
  }
  noticeClock();
  try {
    if (!journal) openJournal();
    if (requestsWaiting) {
      loadRequests();
      rootsReady = true;
    }
    if (rootsReady || std::ranges::any_of(roots, [](const auto& root) { return root->isBusy(); })) {
      followRoots();
      nextRead = Clock::now() + kBetweenReads;
    }
    if (isDue()) writeJournal();
  } catch (const DatabaseError& failure) {
    journalFailed(failure);
  }
  return true;
}

bool RecorderLoop::isDue() const {
  const auto now = Clock::now();
  if (retry && now < *retry) return false;
  if (mustRing || std::ranges::any_of(roots, [](const auto& root) { return root->wantsWriting(); }))
    return true;
  return !changes.empty() && now >= nextWrite;
}

void RecorderLoop::writeJournal() {
  commit();
  changes.clear();
  steps.clear();
  for (const auto& root : roots) root->written();
  nextWrite = Clock::now() + kBetweenWrites;
  retry.reset();
  lastFailure.clear();
  mustRing = false;
  // A root whose sweep was written wants to go on, and requests may be answered by now.
  readNow =
      std::ranges::any_of(roots, [](const auto& root) { return root->isBusy() || root->wantsWriting(); });
  StateWatch::ring(stateFolder, StateWatch::Bell::clients);
}

void RecorderLoop::commit() {
  if (!journal->isCurrent()) openJournal();
  Transaction transaction = journal->begin();
  for (const ClockStep& step : steps) journal->addStep(step);
  for (const auto& [path, deep] : changes) journal->mark(path, ids.next(), deep);
  for (const auto& root : roots) root->write(*journal);
  journal->setNewestId(ids.newest());
  transaction.commit();
}

void RecorderLoop::journalFailed(const DatabaseError& failure) {
  if (failure.isUnusable()) {
    journal.reset();  // opened anew by the next turn
    EventJournal::setAside(stateFolder, log);
    readNow = true;
    return;
  }
  if (lastFailure != failure.what()) {
    lastFailure = failure.what();
    const bool busy = failure.kind == DatabaseError::Kind::busy;
    log.line(fmt::format("cannot write the event journal in {} and keep trying: {}", displayText(stateFolder),
                         busy ? "another program has locked it" : failure.what()));
  }
  requestsWaiting = true;
  retry = Clock::now() + kBetweenRetries;
}

void RecorderLoop::finish() {
  try {
    if (!journal) openJournal();
    followRoots();
    for (const auto& root : roots) root->touch();
    writeJournal();
  } catch (const DatabaseError& failure) {
    // The next recorder finds on the disk what changed since the last transaction.
    log.line(
        fmt::format("cannot write the event journal in {}: {}", displayText(stateFolder), failure.what()));
  }
}

}  // namespace quon
