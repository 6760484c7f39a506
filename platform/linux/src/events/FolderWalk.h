#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "FolderAccess.h"
#include "OwnFolders.h"
#include "base/Mutex.h"

namespace quon {

/// Whoever wants to know of every folder of a walk. Threads: those of the walk.
class FolderVisitor {
 public:
  FolderVisitor() = default;
  FolderVisitor(const FolderVisitor&) = delete;
  FolderVisitor& operator=(const FolderVisitor&) = delete;
  virtual ~FolderVisitor() = default;

  /// A folder was opened and is about to be listed: whatever changes in it after this call is the visitor's
  /// to notice. The token is handed on with its children; none leaves the folder alone. The first folder of a
  /// walk comes with the token that the walk was begun with.
  [[nodiscard]] virtual std::optional<int> enter(int descriptor, int parentToken, std::string_view name,
                                                 const FolderIdentity& identity) = 0;
  /// A folder that was listed may not be opened.
  virtual void refuse(int parentToken, std::string_view name) = 0;
  /// True when it is known that this very folder was at the path at the time since when changes are looked
  /// for.
  [[nodiscard]] virtual bool wasThere(const std::string& path, const FolderIdentity& identity) const = 0;
};

struct SweptFolder {
  std::string path;
  bool deep = false;
};

/// Visits all folders of a tree that lie on one file system, except the program's own, and judges by their
/// times which of them changed: a folder did when its own change time, or that of a file in it, is not older
/// than asked for. A changed folder is deep (it may be another one than before, whose contents keep their old
/// times) when its parent's listing changed as well, or when its own did not, unless it was surely there
/// before. The first folder never is, and below a deep one nothing is judged.
///
/// Threads: work() from several; all else from one, while none works.
class FolderWalk {
 public:
  struct Settings {
    const OwnFolders& own;
    FolderVisitor& visitor;
    std::uint64_t device = 0;                  ///< folders on others are left alone
    std::optional<std::int64_t> changedSince;  ///< microseconds since 1970; none judges nothing
  };

  /// What one thread of a walk needs.
  struct Worker {
    NameLister lister;
    std::vector<SweptFolder> changed;
  };

  explicit FolderWalk(const Settings& how) : settings(how) {}

  /// The folder to begin with; `parentToken` and `name` are what its visitor gets.
  void begin(const std::string& path, int parentToken);
  /// Visits one folder; false when none is left. For a walk by one thread.
  [[nodiscard]] bool step(Worker& worker);
  /// Visits folders until the walk is over, waiting for other threads' finds.
  void work(Worker& worker);
  /// Makes work() end soon. Threads: any.
  void cancel();

 private:
  using SharedFolder = std::shared_ptr<const Descriptor>;

  struct Item {
    SharedFolder parent;  ///< empty for the first, and where too many are held: opened by path
    std::string path;
    std::uint64_t parentInode = 0;
    int parentToken = -1;
    bool isFirst = false;
    bool parentModified = false;
    bool covered = false;  ///< below a deep one
  };

  [[nodiscard]] bool take(Item& item);
  void put(std::vector<Item>& found);
  void finished();
  void visit(const Item& item, Worker& worker);
  [[nodiscard]] Descriptor open(const Item& item) const;
  [[nodiscard]] SharedFolder share(Descriptor folder);
  struct Look;
  void list(const Item& item, const Look& look, Worker& worker, std::vector<Item>& found, bool& entryChanged);

  const Settings settings;
  std::atomic<bool> cancelled{false};
  std::shared_ptr<std::atomic<int>> held = std::make_shared<std::atomic<int>>(0);
  Mutex lock;
  Condition changed;
  std::vector<Item> stack QUON_GUARDED_BY(lock);
  int busy QUON_GUARDED_BY(lock) = 0;
};

}  // namespace quon
