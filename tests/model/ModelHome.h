#pragma once

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "base/Log.h"
#include "base/ManualQueue.h"
#include "model/AppModel.h"
#include "platform/Desktop.h"
#include "platform/Files.h"
#include "platform/Threads.h"
#include "platform/Trash.h"
#include "platform/UserDefaults.h"
#include "platform/Volume.h"
#include "platform_linux/LinuxPlatform.h"
#include "support/FakeEvents.h"
#include "support/TempFolder.h"

namespace quon::test {

/// Settings in memory. Fails the test when they are used within main-thread work.
class MemoryDefaults final : public UserDefaults {
 public:
  std::map<std::string, std::vector<std::string>> lists;
  std::map<std::string, bool> flags;

  [[nodiscard]] std::optional<std::string> text(const std::string&) const override { return std::nullopt; }
  [[nodiscard]] std::vector<std::string> texts(const std::string& key) const override;
  [[nodiscard]] bool flag(const std::string& key) const override;
  void setTexts(const std::string& key, const std::vector<std::string>& texts) override;
  void setFlag(const std::string& key, bool flag) override;

 private:
  mutable std::mutex lock;
};

/// The real files, of which none may be touched within main-thread work: that fails the test.
class BackgroundFiles final : public FileService {
 public:
  explicit BackgroundFiles(const FileService& realFiles) : real(realFiles) {}

  [[nodiscard]] std::optional<PathFacts> facts(const std::string& path,
                                               std::error_code& error) const override;
  [[nodiscard]] std::optional<PathFacts> ownFacts(const std::string& path,
                                                  std::error_code& error) const override;
  [[nodiscard]] std::optional<std::string> canonical(const std::string& path,
                                                     std::error_code& error) const override;
  [[nodiscard]] std::error_code readable(const std::string& folder) const override;
  [[nodiscard]] DiskIdentity disk(const std::string& folder) const override;
  [[nodiscard]] std::string boot() const override;
  [[nodiscard]] std::vector<std::string> mountPoints() const override;
  void makePrivateFolder(const std::string& path) const override;
  void createPrivateFile(const std::string& path) const override;
  void writePrivateFile(const std::string& path, std::string_view content) const override;
  void replace(const std::string& from, const std::string& to) const override;
  bool remove(const std::string& path) const override;
  [[nodiscard]] std::vector<FolderItem> list(const std::string& folder) const override;

 private:
  const FileService& real;
};

/// A desktop that records what is asked of it.
class RecordingDesktop final : public DesktopService {
 public:
  std::string clipboard;
  std::atomic<bool> fullDiskAccess{true};
  int settingsOpened = 0;
  std::string chosen;  ///< the folder that the user picks; "" cancels

  void copyText(const std::string& text) override { clipboard = text; }
  void chooseFolder(const std::string&, std::function<void(const std::string&)> pick) override {
    if (!chosen.empty()) pick(chosen);
  }
  bool hasFullDiskAccess() override { return fullDiskAccess; }
  void openPrivacySettings() override { ++settingsOpened; }
  void whenUnlocked(std::function<void()> call) override { unlocked = std::move(call); }
  std::function<void()> unlocked;
};

/// A volume of any size, and lines that are remembered.
class FakeVolumes final : public VolumeService {
 public:
  std::optional<VolumeCapacity> volume = VolumeCapacity{"home", 1000, 250, std::nullopt};
  [[nodiscard]] std::optional<VolumeCapacity> capacity(const std::string&) const override { return volume; }
};
class RememberedLog final : public Log {
 public:
  std::vector<std::string> lines;
  void line(std::string_view text) override {
    const std::lock_guard held(lock);
    lines.emplace_back(text);
  }

 private:
  std::mutex lock;
};

/// Real threads, of which those of scans and loads may be paused before they begin, or be refused.
class PausableThreads final : public ThreadService {
 public:
  explicit PausableThreads(const ThreadService& realThreads) : real(realThreads) {}

  std::atomic<bool> refused{false};

  void pause() { paused = true; }
  void resume() {
    paused = false;
    paused.notify_all();
  }
  [[nodiscard]] std::unique_ptr<RunningThread> start(const std::string& name, std::size_t stackBytes,
                                                     std::function<void()> body) const override;
  [[nodiscard]] unsigned activeProcessors() const override { return real.activeProcessors(); }

 private:
  const ThreadService& real;
  std::atomic<bool> paused{false};
};

/// A model over real folders, with manual queues: nothing happens between two lines of a test but what it
/// says, except that scans and loads run on threads, which `finish` waits for.
struct ModelHome {
  /// Of a folder of its own, or of another one.
  explicit ModelHome(const std::string& scannedRoot = "");
  ~ModelHome();

  /// Runs the main queue until no scan or load runs.
  void finish();
  /// Scans the tree and waits.
  void scan();
  /// All that is queued anywhere, in turn, until nothing is due; with `seconds`, all clocks move on first.
  void settle(double seconds = 0);
  /// Another model in the same home, as after a restart.
  void restart();
  /// Delivers the events and applies them as one batch.
  void push(const std::vector<FolderEvent>& list);
  [[nodiscard]] ManualBackgroundQueue& queue(std::string_view name);
  std::string refusedQueue;  ///< the system has no thread for it

  const LinuxPlatform platform;
  PausableThreads threads{platform.services().threads};
  BackgroundFiles files{platform.services().files};
  const Platform services{platform.services().directories, files, threads};
  TempFolder top;
  const std::string root;
  std::string userHome;  ///< the user's home folder; from `restart` on when it is changed
  FakeEvents events;
  MemoryDefaults defaults;
  RecordingDesktop desktop;
  FakeVolumes volumes;
  RememberedLog log;
  /// The real one, but that the home folder's trash is in `userHome` whatever the process's is.
  std::unique_ptr<TrashService> trash;
  ManualQueue main;
  std::map<std::string, ManualBackgroundQueue, std::less<>> queues;
  std::int64_t now = 2'000'000'000;
  std::unique_ptr<AppModel> model;
};

}  // namespace quon::test
