// The walk: workers take folders from one shared stack, list each through a buffer of their own, sum the
// files into the folder's node and push the child folders back.
//
// - A node is written only by the worker that lists it; its parent's worker made it before it was pushed, and
//   the stack's lock orders the two.
// - A folder is opened relative to its parent's descriptor, which the child's work keeps open until then.
//   That costs no path resolution, follows no link that appears meanwhile and has no limit on path lengths.
//   The parents kept open are bounded (OpenParents); children beyond the bound are opened by their full path.
// - A folder that cannot be opened for want of descriptors or memory is no empty folder. The parents are let
//   go then; a worker that still finds none leaves its folder to the others and ends, so that what it took is
//   theirs. Only the last one records the failure.
// - How many workers there are follows what they wait for (Crew): each measures one folder in 32.
// - An exception of a worker (too little memory) cancels the walk, and is thrown again by run().
// - The largest files are gathered per worker and merged in worker order at the end.
#include "scan/Walker.h"

#include <algorithm>
#include <exception>
#include <system_error>
#include <utility>
#include <vector>

#include "Crew.h"
#include "OpenParents.h"
#include "WorkStack.h"
#include "base/Checked.h"
#include "base/Path.h"
#include "base/Reason.h"
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
constexpr unsigned kFoldersPerSample = 32;
/// The share of the descriptors that the workers of a waiting walk may have, each for the folder it lists.
constexpr std::size_t kFilesPerWorker = 8;

}  // namespace

class Walker::Run {
 public:
  explicit Run(Walker& owner)
      : walker(owner),
        options(owner.options),
        parents(owner.platform.directories.openFileLimit()),
        stack(*owner.cancel) {}

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
    std::string path;          ///< of the folder being listed; only filled when someone needs it
    unsigned untilSample = 0;  ///< folders; the one being listed is measured at 0
    Crew::Sample sample;       ///< of the folder being listed
  };
  using Workers = std::vector<std::unique_ptr<Worker>>;

  void employ(Crew& crew);
  void runWorker(Crew& crew, Worker& worker);
  void work(Crew& crew, Worker& worker);
  [[nodiscard]] bool scanDir(Work& work, Crew& crew, Worker& worker);
  [[nodiscard]] OpenedDirectory open(Work& work, Worker& worker);
  void list(const OpenDirectoryRef& directory, DirNode& node, Worker& worker);
  [[nodiscard]] DirectoryBatch nextMeasured(Worker& worker);
  void take(const DirEntry& entry, DirNode& node, Worker& worker);
  void takeFolder(const DirEntry& entry, DirNode& node, Worker& worker);
  void takeFile(const DirEntry& entry, DirNode& node, Worker& worker);
  void recordError(DirNode& node);
  void recordRefusal(DirNode& node, const std::error_code& error);
  [[nodiscard]] Result merge();

  Walker& walker;
  const Options& options;
  std::string rootPath;
  OpenParents parents;  // outlives the stack, whose work closes them
  WorkStack stack;
  HardLinks links;
  // After a failure these own all nodes, of which a sink may still know.
  RefPtr<DirNode> tree;
  Workers workers;

  Mutex skipLock;
  std::vector<std::string> skippedPaths QUON_GUARDED_BY(skipLock);
  Mutex errLock;
  std::vector<std::string> errorSamples QUON_GUARDED_BY(errLock);
  std::vector<std::string> errorReasons QUON_GUARDED_BY(errLock);
  std::uint64_t errorCount QUON_GUARDED_BY(errLock) = 0;
  std::exception_ptr failure QUON_GUARDED_BY(errLock);  ///< the first one
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
  tree = rootNode;
  walker.progress->begin(root);
  std::error_code ignored;  // a root without attributes fails to open as well, and is reported then
  if (const auto facts = walker.platform.files.facts(root.empty() ? "/" : root, ignored)) {
    rootNode->mtime = facts->mtime;
  }
  std::vector<Work> first{{rootNode.get(), nullptr}};
  stack.push(first);

  const std::size_t affordable = walker.platform.directories.openFileLimit() / kFilesPerWorker;
  Crew crew(threads, static_cast<unsigned>(std::min<std::size_t>(options.mostThreads, affordable)));
  employ(crew);
  stack.waitUntilDone();
  walker.progress->end();
  {
    const MutexLock held(errLock);
    if (failure) std::rethrow_exception(failure);
  }
  return merge();
}

/// Starts workers as long as more are wanted, and returns when all have ended.
void Walker::Run::employ(Crew& crew) {
  std::vector<std::unique_ptr<RunningThread>> running;
  try {
    while (crew.waitForVacancy()) {
      try {
        workers.push_back(std::make_unique<Worker>(walker.platform.directories.makeReader(), options.topN));
        running.push_back(walker.platform.threads.start(
            "quonscan-" + std::to_string(running.size()), kStackBytes,
            [this, &crew, worker = workers.back().get()] { runWorker(crew, *worker); }));
      } catch (const std::exception&) {
        if (running.empty()) throw;
        crew.couldNotStart();  // fewer workers do the same walk
      }
    }
  } catch (...) {
    walker.cancelRun();
    throw;
  }
}

void Walker::Run::runWorker(Crew& crew, Worker& worker) {
  try {
    work(crew, worker);
    return;
  } catch (...) {
    const MutexLock held(errLock);
    if (!failure) failure = std::current_exception();
  }
  walker.cancelRun();
  crew.leaveAtEnd();
}

void Walker::Run::work(Crew& crew, Worker& worker) {
  while (std::optional<Work> next = stack.pop()) {
    const bool stays = scanDir(*next, crew, worker);
    if (!stays) {
      std::vector<Work> back{*std::move(next)};
      stack.push(back);
    }
    stack.finished();
    if (!stays) return;
    if (worker.untilSample == 0) {
      worker.untilSample = kFoldersPerSample;
      crew.record(std::exchange(worker.sample, {}), stack.hasMore());
    }
    --worker.untilSample;
  }
  crew.leaveAtEnd();
}

OpenedDirectory Walker::Run::open(Work& work, Worker& worker) {
  if (work.parent) {
    OpenedDirectory opened = worker.reader->openChild(*work.parent, work.node->name);
    if (!isTransient(opened.error)) return opened;
    work.parent.reset();
  }
  OpenedDirectory opened = worker.reader->open(work.node->path(rootPath));
  if (!isTransient(opened.error)) return opened;
  parents.keepFewer();
  stack.closeParents();
  return worker.reader->open(work.node->path(rootPath));
}

/// False when the worker has left the folder, and all others, to the other workers.
bool Walker::Run::scanDir(Work& work, Crew& crew, Worker& worker) {
  DirNode& node = *work.node;
  OpenedDirectory opened = open(work, worker);
  if (isTransient(opened.error)) {
    if (crew.leaveToOthers()) return false;
    opened = open(work, worker);
  }
  work.parent.reset();
  if (!opened.directory) {
    recordRefusal(node, opened.error);
    recordError(node);
    if (walker.sink != nullptr) walker.sink->record(node, {});
    return true;
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
  opened.directory.reset();
  if (walker.sink != nullptr) walker.sink->record(node, worker.files.build());
  walker.progress->folderFinished(node);
  return true;
}

void Walker::Run::list(const OpenDirectoryRef& directory, DirNode& node, Worker& worker) {
  if (!options.skipPaths.empty()) worker.path = node.path(rootPath);
  OpenDirectoryRef parent;
  worker.reader->start(directory);
  while (!walker.cancel->isCancelled()) {
    const DirectoryBatch batch = worker.untilSample == 0 ? nextMeasured(worker) : worker.reader->next();
    for (const DirEntry& entry : batch.entries) take(entry, node, worker);
    if (!worker.found.empty() && !parent) parent = parents.keep(directory);
    for (Work& work : worker.found) work.parent = parent;
    stack.push(worker.found);
    if (batch.attributesRefused || batch.status == ReadStatus::failed) recordRefusal(node, batch.error);
    if (batch.status != ReadStatus::more) return;
  }
}

/// Measures what the system takes for it: locks of ours, at which a busy machine makes workers wait too,
/// would look like a disk.
DirectoryBatch Walker::Run::nextMeasured(Worker& worker) {
  using std::chrono::steady_clock;
  const ThreadService& threads = walker.platform.threads;
  const ThreadUse before = threads.used();
  const auto begin = steady_clock::now();
  const DirectoryBatch batch = worker.reader->next();
  const auto taken = steady_clock::now() - begin;
  const ThreadUse after = threads.used();
  worker.sample.whole += taken;
  // A thread that did not wait by itself had to leave its processor to others.
  if (after.waits != before.waits) worker.sample.waited += taken - (after.processor - before.processor);
  return batch;
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

void Walker::Run::recordRefusal(DirNode& node, const std::error_code& error) {
  node.error = true;
  node.errorNumber = static_cast<std::uint16_t>(error.value());
}

void Walker::Run::recordError(DirNode& node) {
  {
    const MutexLock held(errLock);
    errorCount += 1;
    if (errorSamples.size() < kErrorSamples) {
      errorSamples.push_back(node.path(rootPath));
      errorReasons.push_back(reasonOf(node.errorNumber));
    }
  }
  walker.progress->folderFailed();
}

Walker::Result Walker::Run::merge() {
  TopHeap merged(options.topN);
  for (const auto& worker : workers) {
    for (TopFile& file : worker->heap.items) merged.offer(std::move(file));
  }
  workers.clear();
  Result result;
  result.root = std::move(tree);
  result.topFiles = sortedLargestFirst(std::move(merged.items));
  result.hardlinksDeduped = links.deduplicated();
  {
    const MutexLock held(errLock);
    result.errorCount = errorCount;
    result.errorSamples = std::move(errorSamples);
    result.errorReasons = std::move(errorReasons);
  }
  const MutexLock held(skipLock);
  result.skippedProtected = std::move(skippedPaths);
  std::ranges::sort(result.skippedProtected);
  return result;
}

}  // namespace quon
