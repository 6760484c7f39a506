#include "EventHome.h"

#include <algorithm>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <sys/fanotify.h>

#include "linux_fs/Descriptor.h"

namespace quon::test {
namespace {

constexpr std::size_t kStackBytes = 524288;

std::string settledIn(const std::string& root) {
  return root + "/.settled";
}

}  // namespace

void KeptLog::line(std::string_view text) {
  const MutexLock held(lock);
  lines.append(text).append("\n");
}

std::string KeptLog::all() {
  const MutexLock held(lock);
  return lines;
}

EventHome::EventHome() : root(temp.folder("root")) {
  folders.home = temp.path;
  folders.data = temp.at("share/quon");
  folders.config = temp.at("config/quon");
  folders.state = temp.at("state/quon");
}

Listener::Listener(EventService& events, const std::string& root, std::uint64_t since) {
  stream = events.create({.root = root, .since = since}, queue, [this](std::span<const FolderEvent> some) {
    const MutexLock held(lock);
    delivered.insert(delivered.end(), some.begin(), some.end());
    changed.broadcast();
  });
  started = stream != nullptr && stream->start();
}

Listener::~Listener() {
  if (stream) stream->stop();
}

bool Listener::waitUntil(const std::function<bool(const FolderEvent&)>& isExpected) {
  const auto deadline = std::chrono::steady_clock::now() + kGiveUpAfter;
  const MutexLock held(lock);
  while (!std::ranges::any_of(delivered, isExpected)) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    changed.waitUntil(lock, deadline);
  }
  return true;
}

bool Listener::waitForFlags(std::uint32_t flags) {
  return waitUntil([&](const FolderEvent& event) { return (event.flags & flags) == flags; });
}

std::string Listener::waitForLoss() {
  std::string reason;
  EXPECT_TRUE(waitUntil([&](const FolderEvent& event) {
    if ((event.flags & EventFlag::lostTrack) == 0) return false;
    reason = event.reason;
    return true;
  }));
  return reason;
}

bool Listener::waitForFolder(const std::string& path, std::uint64_t after) {
  return waitUntil([&](const FolderEvent& event) { return event.path == path && event.id > after; });
}

Reported Listener::take() {
  const MutexLock held(lock);
  Reported folders;
  for (; taken < delivered.size(); ++taken) {
    const FolderEvent& event = delivered[taken];
    if (event.flags != EventFlag::historyDone) folders[event.path] |= event.flags;
  }
  return folders;
}

Follower::Follower(EventHome& place, const EventOptions& options) : Follower(place, options, place.root) {}

Follower::Follower(EventHome& place, const EventOptions& options, const std::string& top)
    : home(place),
      root(top),
      events(home.threads, home.folders, home.log, options),
      coverage((std::filesystem::create_directories(settledIn(root)),
                events.cover(root, EventService::CoverMode::wait, {}))),
      since(coverage.since),
      listener(events, root, since) {
  EXPECT_TRUE(listener.waitForHistory()) << home.log.all();
  history = listener.take();
}

Reported Follower::changes() {
  std::filesystem::create_directories(settledIn(root));
  Reported found = changesSettledIn(settledIn(root));
  found.erase(settledIn(root));
  return found;
}

Reported Follower::changesSettledIn(const std::string& folder) {
  settle(events, listener, folder);
  return listener.take();
}

RunningRecorder::RunningRecorder(EventHome& home, EventOptions options)
    : recorder(home.threads, home.folders, home.log, options) {
  if (!recorder.tryBegin()) throw std::runtime_error("another recorder is at work");
  thread = home.threads.start("test-recorder", kStackBytes, [this] { recorder.run(); });
}

RunningRecorder::~RunningRecorder() {
  recorder.stop();
  thread->join();
}

void settle(EventService& events, Listener& listener, const std::string& folder) {
  const std::uint64_t now = events.currentEventId();
  std::ofstream(folder + "/now", std::ios::app) << "x";
  ASSERT_TRUE(listener.waitForFolder(folder, now)) << "no event on " << folder;
}

Reported historySince(EventService& events, const std::string& root, std::uint64_t since) {
  Listener listener(events, root, since);
  EXPECT_TRUE(listener.waitForHistory());
  return listener.take();
}

Reported historySince(EventHome& home, const EventOptions& options, std::uint64_t since) {
  LinuxEvents events(home.threads, home.folders, home.log, options);
  return historySince(events, home.root, since);
}

std::uint64_t coverRoot(EventHome& home, const EventOptions& options) {
  LinuxEvents events(home.threads, home.folders, home.log, options);
  const std::uint64_t since = events.cover(home.root, EventService::CoverMode::wait, {}).since;
  EXPECT_NE(since, 0U) << home.log.all();
  return since;
}

bool isLost(const Reported& reported, const std::string& root) {
  const auto found = reported.find(root);
  return found != reported.end() && (found->second & EventFlag::lostTrack) != 0;
}

bool mayUseFanotify() {
  const Descriptor group(::fanotify_init(FAN_CLASS_NOTIF | FAN_REPORT_DIR_FID, O_RDONLY));
  const TempFolder temp;
  return group.isOpen() && ::fanotify_mark(group.get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM, FAN_CREATE,
                                           AT_FDCWD, temp.path.c_str()) == 0;
}

void WithBackEnd::SetUp() {
  if (GetParam() == EventBackEnd::fanotify && !mayUseFanotify()) {
    GTEST_SKIP() << "fanotify takes root, or CAP_SYS_ADMIN and CAP_DAC_READ_SEARCH";
  }
}

std::string backEndName(const testing::TestParamInfo<EventBackEnd>& tested) {
  return tested.param == EventBackEnd::inotify ? "Inotify" : "Fanotify";
}

}  // namespace quon::test
