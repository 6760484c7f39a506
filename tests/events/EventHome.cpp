#include "EventHome.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <sys/fanotify.h>
#include <utility>

#include "linux_fs/Descriptor.h"

namespace quon::test {
namespace {

using namespace std::chrono_literals;
constexpr auto kPatience = 30s;
constexpr std::size_t kStackBytes = 524288;

}  // namespace

void KeptLog::line(std::string_view text) {
  MutexLock held(lock);
  lines.emplace_back(text);
  changed.broadcast();
}

bool KeptLog::waitFor(const std::string& text) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  MutexLock held(lock);
  while (true) {
    for (const std::string& each : lines) {
      if (each.find(text) != std::string::npos) return true;
    }
    if (std::chrono::steady_clock::now() >= deadline) return false;
    changed.waitUntil(lock, deadline);
  }
}

std::string KeptLog::all() {
  MutexLock held(lock);
  std::string joined;
  for (const std::string& each : lines) joined += each + "\n";
  return joined;
}

EventHome::EventHome() : root(temp.folder("root")) {
  folders.home = temp.path;
  folders.data = temp.at("share/quon");
  folders.config = temp.at("config/quon");
  folders.state = temp.at("state/quon");
}

Listener::Listener(EventService& events, const std::string& root, std::uint64_t since, double latency) {
  stream = events.create({.root = root, .since = since, .latency = std::chrono::duration<double>(latency)},
                         queue, [this](std::span<const FolderEvent> some) {
                           MutexLock held(lock);
                           delivered.insert(delivered.end(), some.begin(), some.end());
                           changed.broadcast();
                         });
  started = stream != nullptr && stream->start();
}

Listener::~Listener() {
  if (stream) stream->stop();
}

bool Listener::waitUntil(const std::function<bool(const std::vector<FolderEvent>&)>& reached) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  MutexLock held(lock);
  while (!reached(delivered)) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    changed.waitUntil(lock, deadline);
  }
  return true;
}

bool Listener::waitForHistory() {
  return waitForFlags(EventFlag::historyDone);
}

bool Listener::waitForFlags(std::uint32_t flags) {
  return waitUntil([&](const auto& events) {
    return std::ranges::any_of(events,
                               [&](const FolderEvent& event) { return (event.flags & flags) == flags; });
  });
}

bool Listener::waitForFolder(const std::string& path, std::uint64_t after) {
  return waitUntil([&](const auto& events) {
    return std::ranges::any_of(
        events, [&](const FolderEvent& event) { return event.path == path && event.id > after; });
  });
}

std::map<std::string, std::uint32_t> Listener::take() {
  MutexLock held(lock);
  std::map<std::string, std::uint32_t> folders;
  for (; taken < delivered.size(); ++taken) {
    const FolderEvent& event = delivered[taken];
    if (event.flags != EventFlag::historyDone) folders[event.path] |= event.flags;
  }
  return folders;
}

std::vector<FolderEvent> Listener::all() {
  MutexLock held(lock);
  return delivered;
}

RunningRecorder::RunningRecorder(EventHome& home, EventOptions options)
    : recorder(home.threads, home.folders, home.log, options) {
  if (!recorder.tryBegin()) throw std::runtime_error("another recorder is at work");
  thread = LinuxThreads().start("test-recorder", kStackBytes, [this] { recorder.run(); });
}

RunningRecorder::~RunningRecorder() {
  recorder.stop();
  thread->join();
}

void settle(EventService& events, const std::string& root, Listener& listener, const std::string& folder) {
  const std::uint64_t now = events.currentEventId();
  {
    Listener barrier(events, root, now);
    ASSERT_TRUE(barrier.waitForHistory());
  }
  std::ofstream(folder + "/now", std::ios::app) << "x";
  ASSERT_TRUE(listener.waitForFolder(folder, now)) << "no event on " << folder;
}

void settle(EventService& events, const std::string& root, Listener& listener) {
  settle(events, root, listener, root + "/.settled");
}

bool mayUseFanotify() {
  const Descriptor group(::fanotify_init(FAN_CLASS_NOTIF | FAN_REPORT_DIR_FID, O_RDONLY));
  const TempFolder temp;
  return group.isOpen() && ::fanotify_mark(group.get(), FAN_MARK_ADD | FAN_MARK_FILESYSTEM, FAN_CREATE,
                                           AT_FDCWD, temp.path.c_str()) == 0;
}

std::map<std::string, std::uint32_t> historySince(EventService& events, const std::string& root,
                                                  std::uint64_t since) {
  Listener listener(events, root, since);
  EXPECT_TRUE(listener.begun());
  EXPECT_TRUE(listener.waitForHistory());
  return listener.take();
}

}  // namespace quon::test
