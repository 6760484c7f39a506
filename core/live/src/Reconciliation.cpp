// Each listed folder is reduced to two digests: of its files, and of its names of multiply-linked files. The
// index yields the same two, so that a folder is compared without keeping its files. Which name of a
// multiply-linked file is counted is left out on both sides, since a walk may come to its names in any order;
// its size is compared by itself.
//
// A child folder that came or went makes its parent a changed folder; what lies below it is not compared, as
// the batch that follows walks or removes it whole.
#include "live/Reconciliation.h"

#include <algorithm>
#include <atomic>
#include <optional>
#include <system_error>
#include <utility>
#include <vector>

#include <boost/unordered/unordered_flat_map.hpp>
#include <boost/unordered/unordered_flat_set.hpp>

#include "base/Mutex.h"
#include "base/Path.h"
#include "platform/Files.h"
#include "platform/Threads.h"
#include "scan/ScanSink.h"
#include "scan/Walker.h"
#include "store/RowDigest.h"
#include "store/ScanStore.h"

namespace quon::Refresh {
namespace {

constexpr std::size_t kStackBytes = std::size_t{1024} * 1024;

/// What a folder's entries, but for its child folders, are reduced to.
struct FolderDigest {
  std::uint64_t files = 0;  ///< counted ones that are no sighting of a multiply-linked file
  std::uint64_t links = 0;

  friend bool operator==(const FolderDigest&, const FolderDigest&) = default;
};

struct FileSize {
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::int64_t mtime = 0;

  friend bool operator==(const FileSize&, const FileSize&) = default;
};

using Sizes = boost::unordered_flat_map<std::uint64_t, FileSize>;  // of multiply-linked files

/// Threads: as ScanSink; its results belong to the owner after the walk.
class DigestSink final : public ScanSink {
 public:
  void record(const DirNode& node, FileBatch files) override QUON_EXCLUDES(lock) {
    std::vector<Link> links = takeLinks(node);
    FolderDigest digest;
    boost::unordered_flat_map<std::string_view, std::uint64_t> counted;
    for (const Link& link : links) {
      digest.links += linkDigest(link.fileID, link.name);
      if (link.counted) counted.emplace(link.name, link.fileID);
    }
    std::vector<std::pair<std::uint64_t, FileSize>> sizes;
    for (std::size_t index = 0; index < files.size(); ++index) {
      const FileBatch::File file = files[index];
      const auto link = counted.empty() ? counted.end() : counted.find(file.name);
      if (link == counted.end()) {
        digest.files += fileDigest(file.name, file.logical, file.physical, file.mtime);
      } else {
        sizes.emplace_back(link->second, FileSize{file.logical, file.physical, file.mtime});
      }
    }
    const MutexLock held(lock);
    digests.emplace_back(&node, digest);
    linkSizes.insert(sizes.begin(), sizes.end());
  }

  void recordLink(std::uint64_t fileID, const DirNode& node, std::string_view name, bool counted) override
      QUON_EXCLUDES(lock) {
    const MutexLock held(lock);
    pending[&node].push_back({fileID, std::string(name), counted});
    anyPending = true;
  }

  [[nodiscard]] boost::unordered_flat_map<const DirNode*, FolderDigest> takeDigests() QUON_EXCLUDES(lock) {
    const MutexLock held(lock);
    boost::unordered_flat_map<const DirNode*, FolderDigest> byNode(digests.begin(), digests.end());
    digests = {};
    return byNode;
  }
  [[nodiscard]] Sizes takeSizes() QUON_EXCLUDES(lock) {
    const MutexLock held(lock);
    return std::move(linkSizes);
  }

 private:
  struct Link {
    std::uint64_t fileID;
    std::string name;
    bool counted;
  };

  /// The links of a folder come from the thread that lists it, before its record.
  std::vector<Link> takeLinks(const DirNode& node) QUON_EXCLUDES(lock) {
    if (!anyPending) return {};
    const MutexLock held(lock);
    const auto found = pending.find(&node);
    if (found == pending.end()) return {};
    std::vector<Link> links = std::move(found->second);
    pending.erase(found);
    return links;
  }

  std::atomic<bool> anyPending{false};
  Mutex lock;
  std::vector<std::pair<const DirNode*, FolderDigest>> digests QUON_GUARDED_BY(lock);
  boost::unordered_flat_map<const DirNode*, std::vector<Link>> pending QUON_GUARDED_BY(lock);
  Sizes linkSizes QUON_GUARDED_BY(lock);
};

/// Holds an index against a walk, folder by folder.
class Comparison {
 public:
  Comparison(const Loaded& index, const std::string& url, DigestSink& sink)
      : loaded(index), walked(sink.takeDigests()), walkedSizes(sink.takeSizes()) {
    const std::size_t count = loaded.idByPath.size();
    indexOf.reserve(count);
    stored.resize(count);
    for (std::uint32_t at = 0; at < count; ++at) {
      indexOf.emplace(&loaded.idByPath.node(at), at);
      stored[at].files = loaded.folderDigests[at];
    }
    for (const RegisteredLink& link : ScanStore::links(url)) addLink(link);
  }

  Changes compare(const RefPtr<DirNode>& walkedRoot, const RootPath& root) {
    std::vector<std::pair<const DirNode*, const DirNode*>> waiting{{loaded.result.root.get(), walkedRoot.get()}};
    while (!waiting.empty()) {
      const auto [before, now] = waiting.back();
      waiting.pop_back();
      const bool sameChildren = pairChildren(*before, *now, waiting);
      if (!sameChildren || differs(*before, *now) || resized.contains(before)) add(*before, root);
    }
    return std::move(changes);
  }

 private:
  void addLink(const RegisteredLink& link) {
    const auto at = loaded.idByPath.indexOf(link.folder);
    if (!at) return;
    stored[*at].links += linkDigest(link.fileID, link.name);
    if (link.file.name.empty()) return;
    const FileEntry& file = link.file;
    stored[*at].files -= fileDigest(file.name, file.logical, file.physical, file.mtime);
    const auto now = walkedSizes.find(link.fileID);
    if (now != walkedSizes.end() && now->second != FileSize{file.logical, file.physical, file.mtime}) {
      resized.insert(&loaded.idByPath.node(*at));
    }
  }

  /// Adds the pairs of child folders that are on both sides; false when there is one that is not.
  bool pairChildren(const DirNode& before, const DirNode& now,
                    std::vector<std::pair<const DirNode*, const DirNode*>>& pairs) const {
    const std::size_t count = before.subdirs.size();
    bool same = count == now.subdirs.size();
    // Mostly both are in the order in which the file system lists them.
    std::size_t at = 0;
    const std::size_t most = std::min(count, now.subdirs.size());
    for (; at < most && before.subdirs[at]->name == now.subdirs[at]->name; ++at) {
      pairs.emplace_back(before.subdirs[at].get(), now.subdirs[at].get());
    }
    if (at == most) return same;
    boost::unordered_flat_map<std::string_view, const DirNode*> left;
    for (std::size_t rest = at; rest < count; ++rest) {
      left.emplace(before.subdirs[rest]->name, before.subdirs[rest].get());
    }
    for (std::size_t rest = at; rest < now.subdirs.size(); ++rest) {
      const auto found = left.find(now.subdirs[rest]->name);
      if (found == left.end()) {
        same = false;
        continue;
      }
      pairs.emplace_back(found->second, now.subdirs[rest].get());
      left.erase(found);
    }
    return same && left.empty();
  }

  bool differs(const DirNode& before, const DirNode& now) const {
    const auto digest = walked.find(&now);
    return digest == walked.end() || stored[indexOf.at(&before)] != digest->second ||
           before.mtime != now.mtime || before.error != now.error;
  }

  void add(const DirNode& folder, const RootPath& root) {
    std::string path = folder.path(root.prefix());
    if (path.empty()) path = root.path();
    changes.emplace(std::move(path), Depth::shallow);
  }

  const Loaded& loaded;
  const boost::unordered_flat_map<const DirNode*, FolderDigest> walked;
  const Sizes walkedSizes;
  boost::unordered_flat_map<const DirNode*, std::uint32_t> indexOf;
  std::vector<FolderDigest> stored;
  boost::unordered_flat_set<const DirNode*> resized;
  Changes changes;
};

}  // namespace

class Reconciliation::Walk {
 public:
  Walk(const Platform& services, const IndexedRoot& about, unsigned threads)
      : platform(services),
        index(about),
        root(new DirNode(about.root.path())),
        walker(services,
               {.rootDev = about.rootDev, .topN = 0, .skipPaths = about.skipPaths},
               &sink),
        thread(services.threads.start("quon-reconcile", kStackBytes, [this, threads] { run(threads); })) {}
  ~Walk() {
    walker.cancelRun();
    thread->join();
  }

  void cancel() { walker.cancelRun(); }

  Changes changes(const Loaded& loaded) {
    thread->join();
    if (failure) throw std::system_error(failure->code(), failure->what());
    if (walker.cancel->isCancelled()) throw Failure::cancelled();
    std::error_code error;
    const auto facts = platform.files.facts(index.root.path(), error);
    if (!facts || facts->device != index.rootDev) throw Failure::deviceChanged();
    return Comparison(loaded, index.indexURL, sink).compare(root, index.root);
  }

 private:
  void run(unsigned threads) {
    try {
      (void)walker.run(std::string(index.root.prefix()), root, threads);
    } catch (const std::system_error& reason) {
      failure.emplace(reason);
    }
  }

  const Platform& platform;
  const IndexedRoot index;
  const RefPtr<DirNode> root;
  DigestSink sink;
  Walker walker;
  std::optional<std::system_error> failure;
  const std::unique_ptr<RunningThread> thread;  // last: it uses all of these
};

Reconciliation::Reconciliation(const Platform& platform, const IndexedRoot& index, unsigned threads)
    : walk(std::make_unique<Walk>(platform, index, threads)) {}
Reconciliation::~Reconciliation() = default;

void Reconciliation::cancel() {
  walk->cancel();
}
Changes Reconciliation::changes(const Loaded& loaded) {
  return walk->changes(loaded);
}

}  // namespace quon::Refresh
