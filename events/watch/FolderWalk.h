#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "base/Mutex.h"
#include "linux_fs/Descriptor.h"
#include "linux_fs/InodeFacts.h"
#include "linux_fs/NameListing.h"
#include "watch/OwnFolders.h"

namespace quon {

/// Is called for every folder of a walk. Threads: those of the walk.
class FolderVisitor {
 public:
  FolderVisitor() = default;
  FolderVisitor(const FolderVisitor&) = delete;
  FolderVisitor& operator=(const FolderVisitor&) = delete;
  virtual ~FolderVisitor() = default;

  /// A folder was opened and is about to be listed: whatever changes in it after this call is the visitor's
  /// to notice. The token is passed on with its children; none leaves the folder out. The first folder of a
  /// walk comes with the token that the walk was begun with.
  [[nodiscard]] virtual std::optional<int> enter(int descriptor, int parentToken, std::string_view name,
                                                 const InodeIdentity& identity) = 0;
  /// A folder that was listed may not be opened.
  virtual void refuse(int parentToken, std::string_view name) = 0;
  /// A folder could not be opened, or listed to its end, for lack of descriptors or memory: the walk is not
  /// whole.
  virtual void fail(std::error_code reason) = 0;
};

/// Visits a folder and all below it on the same file system, parents before their children, leaving out the
/// program's own folders.
///
/// Threads: work() from several; all else from one, while none works.
class FolderWalk {
 public:
  struct Settings {
    const OwnFolders& own;
    FolderVisitor* visitor = nullptr;
    std::uint32_t device = 0;  ///< folders on others are left out
  };

  /// What one thread of a walk needs.
  struct Worker {
    NameListing listing{kBufferBytes};
  };

  explicit FolderWalk(const Settings& how);

  /// The folder to begin with; `parentToken` is what its visitor gets.
  void begin(const std::string& path, int parentToken);
  /// Visits one folder; false when none is left. For a walk by one thread.
  [[nodiscard]] bool step(Worker& worker);
  /// Visits folders until the walk is over, waiting for what other threads find.
  void work(Worker& worker);
  /// Makes work() end soon. Threads: any.
  void cancel();

 private:
  using SharedFolder = std::shared_ptr<const Descriptor>;
  static constexpr std::size_t kBufferBytes = 65536;

  struct Item {
    SharedFolder parent;  ///< none for the first, and where too many are open: then opened by path
    std::string path;
    std::uint64_t parentInode = 0;
    int parentToken = -1;
    bool isFirst = false;
  };
  /// An open folder of the walk.
  struct Opened {
    SharedFolder folder;
    InodeFacts facts;
    int token = 0;
  };

  [[nodiscard]] bool take(Item& item);
  void put(std::vector<Item>& found);
  void finished();
  void visit(Item& item, Worker& worker);
  [[nodiscard]] std::optional<Opened> enter(Item& item);
  [[nodiscard]] Descriptor open(const Item& item) const;
  void letGo();
  [[nodiscard]] SharedFolder share(Descriptor folder);
  [[nodiscard]] std::vector<Item> list(const Item& item, const Opened& opened, NameListing& listing) const;

  const Settings settings;
  std::atomic<int> mostOpenParents;
  std::atomic<bool> cancelled{false};
  std::shared_ptr<std::atomic<int>> openFolders = std::make_shared<std::atomic<int>>(0);
  Mutex lock;
  Condition changed;
  std::vector<Item> stack QUON_GUARDED_BY(lock);
  int busy QUON_GUARDED_BY(lock) = 0;
};

}  // namespace quon
