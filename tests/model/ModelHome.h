#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Log.h"
#include "base/ManualQueue.h"
#include "model/AppModel.h"
#include "platform/Desktop.h"
#include "platform/Threads.h"
#include "platform/UserDefaults.h"
#include "platform_linux/LinuxPlatform.h"
#include "support/FakeEvents.h"
#include "support/TempFolder.h"

namespace quon::test {

/// Settings in memory.
class MemoryDefaults final : public UserDefaults {
 public:
  std::map<std::string, std::vector<std::string>> lists;
  std::map<std::string, bool> flags;

  [[nodiscard]] std::optional<std::string> text(const std::string&) const override { return std::nullopt; }
  [[nodiscard]] std::vector<std::string> texts(const std::string& key) const override {
    const auto found = lists.find(key);
    return found == lists.end() ? std::vector<std::string>() : found->second;
  }
  [[nodiscard]] bool flag(const std::string& key) const override {
    const auto found = flags.find(key);
    return found != flags.end() && found->second;
  }
  void setTexts(const std::string& key, const std::vector<std::string>& texts) override {
    lists[key] = texts;
  }
  void setFlag(const std::string& key, bool flag) override { flags[key] = flag; }
};

/// A desktop that notes what is asked of it.
class NotedDesktop final : public DesktopService {
 public:
  std::string clipboard;
  bool fullDiskAccess = true;
  int settingsOpened = 0;
  std::string chosen;  ///< the folder that the user picks; "" cancels

  void copyText(const std::string& text) override { clipboard = text; }
  void chooseFolder(const std::string&, std::function<void(const std::string&)> pick) override {
    if (!chosen.empty()) pick(chosen);
  }
  bool hasFullDiskAccess() override { return fullDiskAccess; }
  void openPrivacySettings() override { ++settingsOpened; }
};

class SilentLog final : public Log {
 public:
  void line(std::string_view) override {}
};

/// Real threads, of which those of scans and loads may be made to wait, or be refused.
class HeldThreads final : public ThreadService {
 public:
  explicit HeldThreads(const ThreadService& realThreads) : real(realThreads) {}

  std::atomic<bool> refused{false};

  void hold() { held = true; }
  void release() {
    held = false;
    held.notify_all();
  }
  [[nodiscard]] std::unique_ptr<RunningThread> start(const std::string& name, std::size_t stackBytes,
                                                     std::function<void()> body) const override;
  [[nodiscard]] unsigned activeProcessors() const override { return real.activeProcessors(); }

 private:
  const ThreadService& real;
  std::atomic<bool> held{false};
};

/// A model over real folders, with manual queues: nothing happens between two lines of a test but what it
/// says, except that scans and loads run on threads, which `finish` waits for.
struct ModelHome {
  ModelHome();
  ~ModelHome();

  /// Runs the main queue until no scan or load runs.
  void finish();
  /// Scans the tree and waits.
  void scan();
  /// All that is queued anywhere, in turn, until nothing is due.
  void settle();
  /// Another model in the same home, as after a restart.
  void restart();

  const LinuxPlatform platform;
  HeldThreads threads{platform.services().threads};
  const Platform services{platform.services().directories, platform.services().files, threads};
  TempFolder top;
  const std::string root;
  std::string userHome;  ///< the user's home folder; from `restart` on when it is changed
  FakeEvents events;
  MemoryDefaults defaults;
  NotedDesktop desktop;
  SilentLog log;
  ManualQueue main;
  ManualBackgroundQueue searches;
  ManualBackgroundQueue lenses;
  ManualBackgroundQueue liveEvents;
  ManualBackgroundQueue liveWork;
  std::int64_t now = 2'000'000'000;
  std::unique_ptr<AppModel> model;
};

}  // namespace quon::test
