#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/Mutex.h"
#include "scan/FileBatch.h"

namespace quon {

class DirNode;

/// A listed folder with its files.
struct FolderRows {
  const DirNode* node;
  FileBatch files;
};

/// A name of a multiply-linked file.
struct LinkRow {
  const DirNode* node;
  std::string name;
  std::uint64_t fileID;
  bool counted;
};

/// All that was queued since the last time.
struct QueuedRows {
  std::vector<FolderRows> folders;
  std::vector<LinkRow> links;
};

/// What walker threads found and the writer has not taken yet. Bounded: producers wait while 32,768 folders
/// or 4 MiB of files and links are queued. Threads: any.
class RowQueue {
 public:
  /// Dropped when the queue is closed, also while it waits.
  void push(FolderRows folder) QUON_EXCLUDES(lock);
  void push(LinkRow link) QUON_EXCLUDES(lock);

  /// Waits for rows and takes all there are; false when there are none and never will be.
  [[nodiscard]] bool take(QueuedRows& taken) QUON_EXCLUDES(lock);

  /// Nothing is accepted from now on; what is queued can still be taken.
  void close() QUON_EXCLUDES(lock);

 private:
  [[nodiscard]] bool waitForRoom() QUON_REQUIRES(lock);

  Mutex lock;
  Condition changed;
  QueuedRows queued QUON_GUARDED_BY(lock);
  std::size_t queuedBytes QUON_GUARDED_BY(lock) = 0;
  bool closed QUON_GUARDED_BY(lock) = false;
};

}  // namespace quon
