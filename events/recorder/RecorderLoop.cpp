// A round of the loop: wait; take what has arrived, requests among it; read the kernel's events of every root
// to their end; send what changed to those who follow it; answer requests. So whatever happened before a
// request arrived is in its answer.
//
// Clients are never waited for, and the journal's file is not needed for any of this.
#include "recorder/RecorderLoop.h"

#include <algorithm>
#include <cerrno>
#include <span>
#include <system_error>
#include <unistd.h>

#include "base/Log.h"
#include "platform/Folders.h"
#include "recorder/RecorderRole.h"

namespace quon {
namespace {

using namespace std::chrono_literals;

/// Events are gathered for so long before they are read, less when somebody follows them.
constexpr auto kBetweenReads = 50ms;
constexpr auto kBetweenFollowedReads = 10ms;
constexpr auto kBetweenDrops = 1h;
constexpr auto kStalledWait = 100ms;
constexpr std::size_t kMostRoots = 1024;
constexpr std::uint64_t kMicrosPerDay = 86'400'000'000;
constexpr std::uint64_t kDaysUnasked = 90;
/// Identifiers that the journal's file reserves at a time when they are ahead of the wall clock: a minute's.
constexpr std::uint64_t kReserved = 60'000'000;
/// The places of what is always waited for; the listener, the clients and the roots follow.
enum FixedWait : std::size_t { kWake, kState, kMounts, kListener };

bool isLost(const FolderEvent& event) {
  return (event.flags & EventFlag::lostTrack) != 0;
}

void clearEvents(int descriptor) {
  std::uint64_t count = 0;
  // Nothing to read is as good as read.
  (void)!::read(descriptor, &count, sizeof count);
}

}  // namespace

RecorderLoop::RecorderLoop(const ThreadService& threads, const Folders& folders, Log& lines,
                           const EventOptions& options, const EventClock& source, RecorderRole& taken,
                           int wakeDescriptor)
    : stateFolder(folders.state),
      log(lines),
      clock(source),
      own(folders),
      role(taken),
      wake(wakeDescriptor),
      stateWatch(stateFolder),
      keeper(stateFolder, log),
      ids(clock, 0),
      context{.own = own,
              .ids = ids,
              .log = log,
              .threads = threads,
              .backEnd = options.backEnd,
              .wake =
                  [wakeDescriptor] {
                    const std::uint64_t one = 1;
                    // An eventfd below its limit takes the write.
                    (void)!::write(wakeDescriptor, &one, sizeof one);
                  }},
      clients(log) {
  loadRoots();
}

RecorderLoop::~RecorderLoop() = default;

void RecorderLoop::loadRoots() {
  const JournalContent content = keeper.load();
  ids.raise(content.newestId);
  keptId = content.newestId;
  for (const RootRecord& root : content.roots)
    roots.push_back(std::make_unique<Root>(Root{{context, root.path}, root.asked}));
}

/// A root that is followed is asked for all the time.
void RecorderLoop::dropUnasked() {
  if (Clock::now() < nextDrop) return;
  nextDrop = Clock::now() + kBetweenDrops;
  const std::uint64_t now = clock.wallMicros();
  for (const auto& root : roots) {
    if (clients.anyFollows(root->recorded.path())) root->asked = now;
  }
  const std::size_t dropped = std::erase_if(roots, [&](const auto& root) {
    return root->asked < now - std::min(now, kDaysUnasked * kMicrosPerDay);
  });
  if (dropped > 0) keepJournal();
}

RecorderLoop::Root* RecorderLoop::rootFor(const std::string& path, bool mayAdd) {
  const auto known = std::ranges::find(
      roots, path, [](const auto& root) -> const std::string& { return root->recorded.path(); });
  if (known != roots.end()) return known->get();
  if (!mayAdd || roots.size() >= kMostRoots) return nullptr;
  roots.push_back(std::make_unique<Root>(Root{{context, path}, 0}));
  return roots.back().get();
}

int RecorderLoop::timeout() const {
  const auto now = Clock::now();
  if (readNow || std::ranges::any_of(roots, [](const auto& root) { return root->recorded.isBusy(); }))
    return 0;
  std::optional<Clock::time_point> next = keeper.due();
  const auto consider = [&](Clock::time_point time) { next = std::min(next.value_or(time), time); };
  if (nextRead > now) consider(nextRead);
  if (clients.isStalled()) consider(now + kStalledWait);
  if (!next) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*next - now);
  return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
}

void RecorderLoop::wait() {
  const int longest = timeout();
  waits.clear();
  waits.push_back({wake, POLLIN, 0});
  waits.push_back({stateWatch->descriptor(), POLLIN, 0});
  waits.push_back({mountTable.descriptor(), POLLPRI, 0});
  clients.addWaits(role.socket(), waits);
  firstRootWait = waits.size();
  if (Clock::now() >= nextRead) {
    for (const auto& root : roots) {
      if (root->recorded.descriptor() >= 0) waits.push_back({root->recorded.descriptor(), POLLIN, 0});
    }
  }
  if (::poll(waits.data(), waits.size(), longest) >= 0) return;
  for (pollfd& each : waits) each.revents = 0;
  if (errno != EINTR)
    throw std::system_error(errno, std::generic_category(), "cannot wait for file-system events");
}

/// True when it concerns the roots' events.
bool RecorderLoop::takeWaits() {
  bool rootsReady = false;
  if (waits[kWake].revents != 0) {
    clearEvents(wake);
    rootsReady = true;
  }
  if (waits[kMounts].revents != 0) {
    const std::vector<std::string> points = mountTable.changes();
    for (const auto& root : roots) root->recorded.mountsChanged(points);
    rootsReady = true;
  }
  clients.take(role.socket(), &waits[kListener], turnNumber);
  const auto ofRoots = std::span(waits).subspan(firstRootWait);
  return rootsReady || std::ranges::any_of(ofRoots, [](const pollfd& each) { return each.revents != 0; });
}

bool RecorderLoop::keepRole() {
  const bool lasts = stateWatch->takeNews();
  if (!role.keep()) return false;
  if (!lasts) stateWatch.emplace(stateFolder);
  keeper.check();
  return true;
}

void RecorderLoop::followRoots() {
  bool placing = std::ranges::any_of(roots, [](const auto& root) { return root->recorded.isPlacing(); });
  for (const auto& root : roots) {
    RecordedRoot& each = root->recorded;
    each.drain(turnNumber);
    const bool wasCovered = each.isCovered();
    // Without being asked, one after the other; the end of a walk wakes the loop.
    each.advance(!placing);
    const std::vector<FolderEvent> events = each.takeEvents();
    if (!events.empty()) clients.publish(each.path(), events, wasCovered && !each.isCovered());
    placing = placing || each.isPlacing();
  }
  if (!placing && std::ranges::any_of(roots, [](const auto& root) { return root->recorded.isUntried(); }))
    readNow = true;
  const bool followed =
      std::ranges::any_of(roots, [&](const auto& root) { return clients.anyFollows(root->recorded.path()); });
  nextRead = Clock::now() + (followed ? kBetweenFollowedReads : kBetweenReads);
}

bool RecorderLoop::turn() {
  dropUnasked();
  wait();
  ++turnNumber;
  bool rootsReady = std::exchange(readNow, false);
  if (takeWaits()) rootsReady = true;
  // After the requests: they came over the socket that there was.
  if (waits[kState].revents != 0 && !keepRole()) return false;
  if (rootsReady || clients.anyWaits() ||
      std::ranges::any_of(roots, [](const auto& root) { return root->recorded.isBusy(); })) {
    followRoots();
    clients.answer([this](const Clients::Waiting& waiting) { return answer(waiting); });
  }
  if (ids.isAhead() && ids.newest() > keptId) keepJournal();
  if (keeper.due() && *keeper.due() <= Clock::now()) keeper.retry();
  clients.flush();
  return true;
}

bool RecorderLoop::answer(const Clients::Waiting& waiting) {
  if (const auto* cover = std::get_if<CoverRequest>(&waiting.request)) return answerCover(*cover, waiting);
  if (const auto* follow = std::get_if<FollowRequest>(&waiting.request))
    return answerFollow(*follow, waiting);
  return answerId(waiting);
}

bool RecorderLoop::answerCover(const CoverRequest& request, const Clients::Waiting& waiting) {
  Root* const root = rootFor(request.root, true);
  if (root == nullptr) {
    waiting.connection.send(Coverage{.reason = "too many folders are recorded already"});
    return true;
  }
  if (waiting.turn == turnNumber) {
    root->recorded.ask();
    if (root->recorded.isUntried()) readNow = true;
    const std::uint64_t now = clock.wallMicros();
    // The day is exact enough, and saves writes.
    if (root->asked + kMicrosPerDay < now || root->asked > now) {
      root->asked = now;
      keepJournal();
    }
  }
  const bool underWay = root->recorded.isUntried() || root->recorded.isPlacing();
  if (request.wait && (underWay || !root->recorded.isDrained(waiting.turn))) return false;
  waiting.connection.send(root->recorded.coverage());
  return true;
}

bool RecorderLoop::answerFollow(const FollowRequest& request, const Clients::Waiting& waiting) {
  Root* const root = rootFor(request.root, false);
  if (root != nullptr && !root->recorded.isDrained(waiting.turn)) return false;
  // Following a root does not have it recorded.
  const std::vector<FolderEvent> history =
      root != nullptr ? root->recorded.history(request.since)
                      : RecordedRoot::lostHistory(
                            {.path = request.root, .flags = EventFlag::userDropped, .id = ids.next()});
  waiting.connection.send(request.root, history);
  if (isLost(history.front())) waiting.connection.finish();
  return true;
}

bool RecorderLoop::answerId(const Clients::Waiting& waiting) {
  if (std::ranges::any_of(roots, [&](const auto& root) { return !root->recorded.isDrained(waiting.turn); }))
    return false;
  waiting.connection.send(IssuedId{ids.next()});
  return true;
}

void RecorderLoop::finish() {
  keepJournal();
  keeper.retry();
}

void RecorderLoop::keepJournal() {
  keptId = ids.isAhead() ? ids.newest() + kReserved : ids.newest();
  JournalContent content;
  content.newestId = keptId;
  for (const auto& root : roots) content.roots.push_back({root->recorded.path(), root->asked});
  keeper.keep(std::move(content));
}

}  // namespace quon
