#pragma once

#include <deque>
#include <set>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <boost/unordered/unordered_flat_set.hpp>

#include "base/Mutex.h"
#include "linux_fs/Descriptor.h"
#include "watch/RootWatch.h"

struct inotify_event;

namespace quon {

/// A watch on every folder below the root.
class InotifyWatch final : public RootWatch {
 public:
  explicit InotifyWatch(RootWatchSettings how);

  [[nodiscard]] int descriptor() const override { return notifier.get(); }
  [[nodiscard]] bool drain() override;
  void collect(FolderChanges& into) override;
  void mountChanged(const std::string& path) override;
  [[nodiscard]] const WatchProblems& problems() const override { return found; }
  void rootIsInPlace() override { found.rootMoved = false; }

  [[nodiscard]] std::optional<int> enter(int descriptor, int parentToken, std::string_view name,
                                         const InodeIdentity& identity) override;
  void refuse(int parentToken, std::string_view name) override;
  void fail(std::error_code reason) override;

 private:
  /// A place in the tree at which another folder may be by now.
  struct Check {
    int parent = WatchTree::kNone;
    std::string name;
    bool appeared = false;

    friend bool operator==(const Check&, const Check&) = default;
  };
  /// Another place of a watched folder, by a bind mount.
  struct Alias {
    int watch = WatchTree::kNone;
    int parent = WatchTree::kNone;
    std::string name;
  };
  /// A folder that appeared, while the folders below it get their watches.
  struct NewFolder {
    int parent;
    std::string name;
    std::unique_ptr<FolderWalk> walk;
  };

  void watchAbove();
  [[nodiscard]] bool readEvents();
  void handle(const inotify_event& event, std::string_view name) QUON_REQUIRES(lock);
  void handleFolder(const inotify_event& event, std::string_view name) QUON_REQUIRES(lock);
  void forget(int watch) QUON_REQUIRES(lock);
  void failWatch(int reason, int parentToken, std::string_view name) QUON_REQUIRES(lock);
  [[nodiscard]] bool isElsewhere(int watch, const InodeIdentity& identity) QUON_REQUIRES(lock);
  void dropAlias(int parent, std::string_view name) QUON_REQUIRES(lock);
  void displace(int watch) QUON_REQUIRES(lock);
  void addAliases(FolderChanges& changes) QUON_REQUIRES(lock);
  void retryBelow(int watch) QUON_REQUIRES(lock);
  void checkPlace(const Check& check);
  void notOpened(const Check& check, const std::string& path, int reason) QUON_REQUIRES(lock);
  [[nodiscard]] bool watchNewFolders();
  [[nodiscard]] std::optional<std::string> pathOf(int parent, std::string_view name);

  const RootWatchSettings settings;
  Descriptor notifier;
  WatchProblems found;
  std::vector<Check> checks;
  std::deque<NewFolder> newFolders;
  FolderWalk::Worker worker;
  std::vector<std::string> deepPaths;
  boost::unordered_flat_set<int> above;  // watches on the folders above the root
  bool queueEmpty = false;

  Mutex lock;  // walks enter while events are read
  WatchTree tree QUON_GUARDED_BY(lock);
  boost::unordered_flat_set<int> changed QUON_GUARDED_BY(lock);
  /// Without a place: they are forgotten unless an event gives them another one.
  boost::unordered_flat_set<int> displaced QUON_GUARDED_BY(lock);
  /// Places of folders that could not be opened, because they or one above them lack the permission.
  std::set<std::pair<int, std::string>> denied QUON_GUARDED_BY(lock);
  std::vector<Alias> aliases QUON_GUARDED_BY(lock);
  std::string unwatched QUON_GUARDED_BY(lock);  // as in WatchProblems
};

}  // namespace quon
