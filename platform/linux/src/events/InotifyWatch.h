#pragma once

#include <deque>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <boost/unordered/unordered_flat_set.hpp>

#include "RootWatch.h"
#include "base/Mutex.h"
#include "platform_linux/Descriptor.h"

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
  [[nodiscard]] const WatchTrouble& trouble() const override { return seen; }
  void rootIsInPlace() override { seen.rootMoved = false; }
  [[nodiscard]] WatchRemains abandon() override;

  [[nodiscard]] std::optional<int> enter(int descriptor, int parentToken, std::string_view name,
                                         const FolderIdentity& identity) override;
  void refuse(int parentToken, std::string_view name) override;
  [[nodiscard]] bool wasThere(const std::string& path, const FolderIdentity& identity) const override;

 private:
  /// A place at which the tree may not be what it was.
  struct Doubt {
    int parent = WatchTree::kNone;
    std::string name;
    bool appeared = false;

    friend bool operator==(const Doubt&, const Doubt&) = default;
  };
  /// A folder that appeared, while the folders below it get their watches.
  struct Appearance {
    int parent;
    std::string name;
    std::unique_ptr<FolderWalk> walk;
  };

  void watchAbove();
  [[nodiscard]] bool readEvents();
  void handle(const inotify_event& event, std::string_view name) QUON_REQUIRES(lock);
  void handleFolder(const inotify_event& event, std::string_view name) QUON_REQUIRES(lock);
  void forget(int watch) QUON_REQUIRES(lock);
  void retryBelow(int watch) QUON_REQUIRES(lock);
  void settle(const Doubt& doubt);
  [[nodiscard]] bool placeAppeared();
  [[nodiscard]] std::optional<std::string> pathOf(int parent, std::string_view name);

  const RootWatchSettings settings;
  Descriptor notifier;
  WatchTrouble seen;
  std::vector<Doubt> doubts;
  std::deque<Appearance> appearances;
  FolderWalk::Worker worker;
  std::vector<std::string> deepPaths;
  boost::unordered_flat_set<int> above;  // watches on the folders above the root
  bool queueEmpty = false;

  Mutex lock;  // sweeps enter while events are read
  std::unique_ptr<WatchTree> tree QUON_GUARDED_BY(lock) = std::make_unique<WatchTree>();
  boost::unordered_flat_set<int> changed QUON_GUARDED_BY(lock);
  boost::unordered_flat_set<int> limbo QUON_GUARDED_BY(lock);  // without a place: removed unless they turn up
  /// Places of folders that could not be opened for want of permission, theirs or that of one above them.
  std::set<std::pair<int, std::string>> denied QUON_GUARDED_BY(lock);
  bool limitReached QUON_GUARDED_BY(lock) = false;
  bool refused QUON_GUARDED_BY(lock) = false;
};

}  // namespace quon
