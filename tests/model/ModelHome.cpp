#include "ModelHome.h"

#include <filesystem>
#include <fmt/format.h>
#include <fstream>
#include <gtest/gtest.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "base/MainThread.h"
#include "linux_desktop/LinuxTrash.h"

namespace quon::test {
namespace {

void expectBackground(const char* call) {
  EXPECT_FALSE(MainThreadWork::isUnderWay()) << call << " on the main thread";
}

}  // namespace

std::vector<std::string> MemoryDefaults::texts(const std::string& key) const {
  expectBackground("reading settings");
  const std::lock_guard held(lock);
  const auto found = lists.find(key);
  return found == lists.end() ? std::vector<std::string>() : found->second;
}

bool MemoryDefaults::flag(const std::string& key) const {
  expectBackground("reading settings");
  const std::lock_guard held(lock);
  const auto found = flags.find(key);
  return found != flags.end() && found->second;
}

void MemoryDefaults::setTexts(const std::string& key, const std::vector<std::string>& texts) {
  expectBackground("keeping settings");
  const std::lock_guard held(lock);
  lists[key] = texts;
}

void MemoryDefaults::setFlag(const std::string& key, bool flag) {
  expectBackground("keeping settings");
  const std::lock_guard held(lock);
  flags[key] = flag;
}

std::optional<PathFacts> BackgroundFiles::facts(const std::string& path, std::error_code& error) const {
  expectBackground("facts");
  return real.facts(path, error);
}
std::optional<PathFacts> BackgroundFiles::ownFacts(const std::string& path, std::error_code& error) const {
  expectBackground("ownFacts");
  return real.ownFacts(path, error);
}
std::optional<std::string> BackgroundFiles::canonical(const std::string& path, std::error_code& error) const {
  expectBackground("canonical");
  return real.canonical(path, error);
}
std::error_code BackgroundFiles::readable(const std::string& folder) const {
  expectBackground("readable");
  return real.readable(folder);
}
DiskIdentity BackgroundFiles::disk(const std::string& folder) const {
  expectBackground("disk");
  return real.disk(folder);
}
std::string BackgroundFiles::boot() const {
  expectBackground("boot");
  return real.boot();
}
std::vector<std::string> BackgroundFiles::mountPoints() const {
  expectBackground("mountPoints");
  return real.mountPoints();
}
void BackgroundFiles::makePrivateFolder(const std::string& path) const {
  expectBackground("makePrivateFolder");
  real.makePrivateFolder(path);
}
void BackgroundFiles::createPrivateFile(const std::string& path) const {
  expectBackground("createPrivateFile");
  real.createPrivateFile(path);
}
void BackgroundFiles::writePrivateFile(const std::string& path, std::string_view content) const {
  expectBackground("writePrivateFile");
  real.writePrivateFile(path, content);
}
void BackgroundFiles::replace(const std::string& from, const std::string& to) const {
  expectBackground("replace");
  real.replace(from, to);
}
bool BackgroundFiles::remove(const std::string& path) const {
  expectBackground("remove");
  return real.remove(path);
}
std::vector<FolderItem> BackgroundFiles::list(const std::string& folder) const {
  expectBackground("list");
  return real.list(folder);
}

std::unique_ptr<RunningThread> PausableThreads::start(const std::string& name, std::size_t stackBytes,
                                                      std::function<void()> body) const {
  if (!name.starts_with("quon-")) return real.start(name, stackBytes, std::move(body));
  if (refused) throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
  return real.start(name, stackBytes, [this, body = std::move(body)] {
    paused.wait(true);
    body();
  });
}

namespace {

/// As the system does it for the home folder's file system.
void moveToTrash(const std::string& bin, const std::string& path) {
  namespace fs = std::filesystem;
  fs::create_directories(bin + "/files");
  fs::create_directories(bin + "/info");
  const std::string name = path.substr(path.rfind('/') + 1);
  std::string free = name;
  const std::string files = bin + "/files/";
  for (int next = 2; fs::exists(fs::symlink_status(files + free)); ++next) {
    free = name + "." + std::to_string(next);
  }
  std::string escaped;
  for (const char byte : path)
    escaped += byte == '/' ? "/" : fmt::format("%{:02X}", static_cast<unsigned char>(byte));
  std::ofstream(bin + "/info/" + free + ".trashinfo")
      << "[Trash Info]\nPath=" << escaped << "\nDeletionDate=2026-11-21T12:00:00\n";
  fs::rename(path, bin + "/files/" + free);
}

}  // namespace

ModelHome::ModelHome(const std::string& scannedRoot)
    : root(scannedRoot.empty() ? top.folder("tree") : scannedRoot), userHome(top.path) {
  restart();
}
ModelHome::~ModelHome() {
  threads.resume();
}

ManualBackgroundQueue& ModelHome::queue(std::string_view name) {
  return queues[std::string(name)];
}

void ModelHome::restart() {
  model.reset();
  const std::string bin = userHome + "/.local/share/Trash";
  trash = std::make_unique<LinuxTrash>(userHome + "/.local/share", ::getuid(),
                                       [bin](const std::string& path) { moveToTrash(bin, path); });
  model = std::make_unique<AppModel>(ModelServices{
      services, events, defaults, desktop, volumes, log, *trash,
      Folders{.home = userHome,
              .data = top.at("data"),
              .config = top.at("config"),
              .state = top.at("state"),
              .cacheHome = userHome + "/.cache",
              .configHome = userHome + "/.config",
              .dataHome = userHome + "/.local/share"},
      main,
      [this](std::string_view name) -> BackgroundQueue& {
        if (name == refusedQueue)
          throw std::system_error(std::make_error_code(std::errc::resource_unavailable_try_again));
        return queue(name);
      },
      [this] { return std::chrono::duration<double>(queue(QueueName::liveWork).now()); },
      [this] { return now; }});
}

void ModelHome::finish() {
  main.runUntil([this] { return !model->isBusy(); });
}

void ModelHome::scan() {
  model->scan(root);
  finish();
}

void ModelHome::settle(double seconds) {
  for (auto& [name, each] : queues) each.advance(std::chrono::duration<double>(seconds));
  for (int round = 0; round < 4; ++round) {
    for (auto& [name, each] : queues) each.runPosted();
    main.runPosted();
  }
}

void ModelHome::push(const std::vector<FolderEvent>& list) {
  settle();
  events.push(list);
  queue(QueueName::liveEvents).runPosted();
  queue(QueueName::liveWork).advance(std::chrono::seconds(2));
  main.runPosted();
}

}  // namespace quon::test
