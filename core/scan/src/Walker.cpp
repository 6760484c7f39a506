// The walk: workers take folders from one shared stack, list each through a buffer of their own, sum the
// files into the folder's node and push the child folders back.
//
// - A node is written only by the worker that lists it; its parent's worker made it before it was pushed, and
//   the stack's lock orders the two.
// - A folder is opened relative to its parent's descriptor, which the child's work keeps open until then.
//   That costs no path resolution, follows no link that appears meanwhile and has no limit on path lengths.
//   The parents kept open are bounded (kOpenParents); children beyond the bound are opened by their full
//   path.
// - The largest files are gathered per worker and merged in worker order at the end.
#include "scan/Walker.h"

#include <algorithm>
#include <atomic>
#include <system_error>
#include <utility>
#include <vector>

#include "WorkStack.h"
#include "base/Checked.h"
#include "base/Path.h"
#include "platform/Directories.h"
#include "platform/Files.h"
#include "platform/Threads.h"
#include "scan/DirNode.h"
#include "scan/HardLinks.h"
#include "scan/ScanSink.h"
#include "scan/TopHeap.h"

namespace quon {
namespace {

constexpr std::size_t kStackBytes = 4194304;
constexpr std::size_t kErrorSamples = 50;
constexpr unsigned kLeastThreads = 4;
/// Half of the descriptors that a process has by default (1,024), so that everything else has its share.
constexpr std::int64_t kOpenParents = 512;

}  // namespace

class Walker::Run {
 public:
  explicit Run(Walker& owner) : walker(owner), options(owner.options), stack(*owner.cancel) {}

  Result walk(const std::string& root, const RefPtr<DirNode>& rootNode, unsigned threads);
  void wakeAll() { stack.wakeAll(); }

 private:
  /// One worker's own memory, reused from folder to folder.
  struct Worker {
    Worker(std::unique_ptr<DirectoryReader> ownReader, std::int64_t topN)
        : reader(std::move(ownReader)), heap(topN) {}
    std::unique_ptr<DirectoryReader> reader;
    TopHeap heap;
    FileBatch::Builder files;
    std::vector<RefPtr<DirNode>> children;
    std::vector<FileEntry> kept;
    std::vector<Work> found;
    std::string path;  ///< of the folder being listed; only filled when someone needs it
  };

  void work(Worker& worker);
  void scanDir(const Work& work, Worker& worker);
  [[nodiscard]] OpenedDirectory open(const Work& work, Worker& worker) const;
  void list(const OpenDirectoryRef& directory, DirNode& node, Worker& worker);
  void take(const DirEntry& entry, DirNode& node, Worker& worker);
  void takeFolder(const DirEntry& entry, DirNode& node, Worker& worker);
  void takeFile(const DirEntry& entry, DirNode& node, Worker& worker);
  [[nodiscard]] OpenDirectoryRef keptOpen(const OpenDirectoryRef& directory);
  void recordError(DirNode& node);
  [[nodiscard]] Result merge(const RefPtr<DirNode>& rootNode,
                             const std::vector<std::unique_ptr<Worker>>& workers);

  Walker& walker;
  const Options& options;
  std::string rootPath;
  std::atomic<std::int64_t> openParents{0};  // outlives the stack, whose work closes parents
  WorkStack stack;
  HardLinks links;

  Mutex skipLock;
  std::vector<std::string> skippedPaths QUON_GUARDED_BY(skipLock);
  Mutex errLock;
  std::vector<std::string> errorSamples QUON_GUARDED_BY(errLock);
  std::uint64_t errorCount QUON_GUARDED_BY(errLock) = 0;
};

Walker::Walker(const Platform& services, Options chosen, ScanSink* receiver)
    : progress(std::make_shared<Progress>()),
      cancel(std::make_shared<ScanCancel>()),
      platform(services),
      options(std::move(chosen)),
      sink(receiver),
      active(std::make_unique<Run>(*this)) {}

Walker::~Walker() = default;

Walker::Result Walker::run(const std::string& rootPath, const RefPtr<DirNode>& rootNode, unsigned threads) {
  return active->walk(rootPath, rootNode, threads);
}

void Walker::cancelRun() {
  cancel->cancel();
  active->wakeAll();
}

unsigned Walker::defaultThreads(const Platform& platform) {
  return std::max(platform.threads.activeProcessors(), kLeastThreads);
}

Walker::Result Walker::Run::walk(const std::string& root, const RefPtr<DirNode>& rootNode, unsigned threads) {
  rootPath = root;
  walker.progress->begin(root);
  std::error_code ignored;  // a root without attributes fails to open as well, and is reported then
  if (const auto facts = walker.platform.files.facts(root.empty() ? "/" : root, ignored)) {
    rootNode->mtime = facts->mtime;
  }
  std::vector<Work> first{{rootNode.get(), nullptr}};
  stack.push(first);

  std::vector<std::unique_ptr<Worker>> workers;
  std::vector<std::unique_ptr<RunningThread>> running;
  for (unsigned index = 0; index < threads; ++index) {
    workers.push_back(std::make_unique<Worker>(walker.platform.directories.makeReader(), options.topN));
    try {
      running.push_back(
          walker.platform.threads.start("quonscan-" + std::to_string(index), kStackBytes,
                                        [this, worker = workers.back().get()] { work(*worker); }));
    } catch (const std::system_error&) {
      if (running.empty()) throw;
      break;  // fewer workers do the same walk
    }
  }
  stack.waitUntilDone();
  for (const auto& thread : running) thread->join();
  walker.progress->end();
  return merge(rootNode, workers);
}

void Walker::Run::work(Worker& worker) {
  while (const std::optional<Work> next = stack.pop()) {
    scanDir(*next, worker);
    stack.finished();
  }
}

OpenedDirectory Walker::Run::open(const Work& work, Worker& worker) const {
  if (work.parent) return worker.reader->openChild(*work.parent, work.node->name);
  return worker.reader->open(work.node->path(rootPath));
}

void Walker::Run::scanDir(const Work& work, Worker& worker) {
  DirNode& node = *work.node;
  const OpenedDirectory opened = open(work, worker);
  if (!opened.directory) {
    recordError(node);
    if (walker.sink != nullptr) walker.sink->record(node, {});
    return;
  }
  worker.files.clear();
  list(opened.directory, node, worker);
  if (node.error) recordError(node);
  node.subdirs.assign(std::make_move_iterator(worker.children.begin()),
                      std::make_move_iterator(worker.children.end()));
  node.keptFiles.assign(std::make_move_iterator(worker.kept.begin()),
                        std::make_move_iterator(worker.kept.end()));
  worker.children.clear();
  worker.kept.clear();
  if (walker.sink != nullptr) walker.sink->record(node, worker.files.build());
  walker.progress->folderFinished(node);
}

void Walker::Run::list(const OpenDirectoryRef& directory, DirNode& node, Worker& worker) {
  if (!options.skipPaths.empty()) worker.path = node.path(rootPath);
  OpenDirectoryRef parent;
  worker.reader->start(directory);
  while (!walker.cancel->isCancelled()) {
    const DirectoryBatch batch = worker.reader->next();
    for (const DirEntry& entry : batch.entries) take(entry, node, worker);
    if (!worker.found.empty() && !parent) parent = keptOpen(directory);
    for (Work& work : worker.found) work.parent = parent;
    stack.push(worker.found);
    if (batch.attributesRefused || batch.status == ReadStatus::failed) node.error = true;
    if (batch.status != ReadStatus::more) return;
  }
}

void Walker::Run::take(const DirEntry& entry, DirNode& node, Worker& worker) {
  if (entry.name.empty()) return;
  if (entry.type == EntryType::directory) return takeFolder(entry, node, worker);
  if (entry.type == EntryType::regular && entry.linkCount >= 2 && entry.fileID != 0) {
    const std::uint32_t device = entry.device != 0 ? entry.device : options.rootDev;
    const bool first = links.firstSightingOfHardlink(device, entry.fileID);
    if (walker.sink != nullptr) {
      walker.sink->recordLink(linkIdentifier(options.rootDev, device, entry.fileID), node, entry.name, first);
    }
    if (!first) return;
  }
  takeFile(entry, node, worker);
}

void Walker::Run::takeFolder(const DirEntry& entry, DirNode& node, Worker& worker) {
  const bool foreign = entry.device != 0 && entry.device != options.rootDev;
  if (foreign && options.oneFileSystem) return;
  if (!options.skipPaths.empty()) {
    std::string path = joinPath(worker.path, entry.name);
    if (options.skipPaths.contains(path)) {
      const MutexLock held(skipLock);
      skippedPaths.push_back(std::move(path));
      return;
    }
  }
  RefPtr<DirNode> child(new DirNode(std::string(entry.name)));
  child->parent = &node;
  child->mtime = entry.mtime;
  worker.found.push_back({child.get(), nullptr});
  worker.children.push_back(std::move(child));
}

void Walker::Run::takeFile(const DirEntry& entry, DirNode& node, Worker& worker) {
  node.directLogical = checkedAdd(node.directLogical, entry.logical);
  node.directPhysical = checkedAdd(node.directPhysical, entry.physical);
  node.directFiles += 1;
  node.directNewest = std::max(node.directNewest, entry.mtime);
  if (entry.name == DirNode::kCacheTag) node.cacheTagged = true;
  if (walker.sink != nullptr) {
    worker.files.add({entry.name, entry.logical, entry.physical, entry.mtime});
  }
  if (entry.logical < options.minKeep) return;
  worker.kept.push_back({std::string(entry.name), entry.logical, entry.physical, entry.mtime});
  if (worker.heap.wouldKeep(entry.logical)) {
    worker.heap.offer(
        {joinPath(node.path(rootPath), entry.name), entry.logical, entry.physical, entry.mtime});
  }
}

/// The reference that the folder's waiting children share and whose last copy closes it; none at the bound.
OpenDirectoryRef Walker::Run::keptOpen(const OpenDirectoryRef& directory) {
  if (openParents.load(std::memory_order_relaxed) >= kOpenParents) return nullptr;
  openParents.fetch_add(1, std::memory_order_relaxed);
  return {directory.get(),
          [directory, &open = openParents](OpenDirectory*) { open.fetch_sub(1, std::memory_order_relaxed); }};
}

void Walker::Run::recordError(DirNode& node) {
  node.error = true;
  {
    const MutexLock held(errLock);
    errorCount += 1;
    if (errorSamples.size() < kErrorSamples) errorSamples.push_back(node.path(rootPath));
  }
  walker.progress->folderFailed();
}

Walker::Result Walker::Run::merge(const RefPtr<DirNode>& rootNode,
                                  const std::vector<std::unique_ptr<Worker>>& workers) {
  TopHeap merged(options.topN);
  for (const auto& worker : workers) {
    for (TopFile& file : worker->heap.items) merged.offer(std::move(file));
  }
  Result result;
  result.root = rootNode;
  result.topFiles = sortedLargestFirst(std::move(merged.items));
  result.hardlinksDeduped = links.deduplicated();
  {
    const MutexLock held(errLock);
    result.errorCount = errorCount;
    result.errorSamples = std::move(errorSamples);
  }
  const MutexLock held(skipLock);
  result.skippedProtected = std::move(skippedPaths);
  std::ranges::sort(result.skippedProtected);
  return result;
}

}  // namespace quon
