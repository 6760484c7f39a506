// The lenses. Those that read the whole tree in the background do it as readers of the gate; kinds and
// regenerable folders take milliseconds and are read where they are asked for, on the main thread, the only
// one that changes the tree.
#include <algorithm>
#include <fmt/format.h>
#include <system_error>
#include <utility>

#include "ModelRun.h"
#include "base/BackgroundQueue.h"
#include "base/HumanBytes.h"
#include "base/Log.h"
#include "base/Path.h"
#include "lenses/Age.h"
#include "lenses/MarkerFiles.h"
#include "model/AppModel.h"
#include "platform/Files.h"
#include "store/StoreError.h"

namespace quon {
namespace {

/// Where things lie by the names that the tree has for them: it knows no links, while the home folder lies
/// behind one in some systems.
Reclaim::Surroundings surroundingsOf(const FileService& files, const Folders& folders,
                                     std::string_view rootPath) {
  std::error_code missing;
  const auto of = [&](const std::string& folder) {
    return files.canonical(folder, missing).value_or(folder);
  };
  return {.rootPath = std::string(rootPath),
          .home = of(folders.home),
          // A link in the place of the caches may lead to where other things lie as well.
          .cacheHome = withoutLinksAbove(files, folders.cacheHome),
          .configHome = of(folders.configHome),
          .dataHome = of(folders.dataHome),
          .mountPoints = files.mountPoints(),
          .userID = folders.userID};
}

}  // namespace

/// Stops them soon; what they bring is void.
void AppModel::endLensJobs() {
  for (const auto& generation : {ageGen, dupeGen, namesGen, misnamedGen, volumeGen}) generation->advance();
  if (dupeCancel) dupeCancel->cancel();
  dupeCancel.reset();
  dupeRefreshWork.cancel();
}

/// The tree that the lenses told of is about to be replaced.
void AppModel::voidLenses() {
  endLensJobs();
  _ageHits.set(std::nullopt);
  _ageScanning.set(false);
  _dupes.set(nullptr);
  _dupeScanning.set(false);
  sniffDone = false;
  sniffing = false;
  kindOverrides.clear();
  _names.set(std::nullopt);
  _namesError.set(std::nullopt);
  _namesLoading.set(false);
  _misnamed.set(nullptr);
  _misnamedScanning.set(false);
  _volume.set(nullptr);
  _volumeLoading.set(false);
  volumeProbedAt.reset();
  volumeStale = true;
}

Kinds::Aggregate AppModel::kindRows() const {
  if (!_scope.get()) return {};
  return Kinds::aggregate(_scope.get(), _metric.get(), kindOverrides);
}

std::vector<Reclaim::Group> AppModel::reclaimGroups(const RefPtr<DirNode>& scope) const {
  return Reclaim::groups(scope, _metric.get(),
                         surroundingsOf(services.platform.files, services.folders, treeRoot()),
                         DiskMarkers());
}

const std::vector<Reclaim::Group>& AppModel::reclaimAllGroups() {
  static const std::vector<Reclaim::Group> kNone;
  if (!_result.get()) return kNone;
  const RefPtr<DirNode>& root = _result.get()->root;
  const bool fresh = reclaimAllCache && reclaimAllCache->root == root &&
                     reclaimAllCache->metric == _metric.get() && reclaimAllCache->version == _version.get();
  if (!fresh) reclaimAllCache = {root, _metric.get(), _version.get(), reclaimGroups(root)};
  return reclaimAllCache->groups;
}

void AppModel::scheduleAgeScan() {
  const std::int64_t generation = ageGen->advance();
  if (!_result.get()) return;
  _ageScanning.set(true);
  services.lenses.post([generation, box = ageGen, gate = treeGate, scope = _scope.get(),
                        root = std::string(treeRoot()), cutoff = services.now() - _ageCutoff.get(),
                        metric = _metric.get(), weak = Self(self), &main = services.main] {
    const auto stopped = [&] { return !box->isCurrent(generation); };
    if (stopped()) return;
    std::optional<std::vector<Entry>> found;
    {
      const TreeGate::Reading reading(*gate);
      found = ageScan(scope, root, cutoff, metric, stopped);
    }
    auto hits = std::make_shared<std::optional<std::vector<Entry>>>(std::move(found));
    main.post([weak, generation, hits] {
      const auto alive = weak.lock();
      if (!alive || !(*alive)->ageGen->isCurrent(generation)) return;
      (*alive)->_ageHits.set(std::move(*hits));
      (*alive)->_ageScanning.set(false);
    });
  });
}

/// The folder that the Names lens tells of, as a path below the root.
std::string AppModel::namesBelow() const {
  return conduct.ofScope ? std::string(relativeTo(scopePath, shownRoot).value_or("")) : "";
}

void AppModel::scheduleNamesScan() {
  const std::int64_t generation = namesGen->advance();
  _namesLoading.set(true);
  services.lenses.post([generation, box = namesGen, url = indexURL(), limit = conduct.namesShown,
                        below = namesBelow(), weak = Self(self), &main = services.main] {
    if (!box->isCurrent(generation)) return;
    auto names = std::make_shared<std::vector<RepeatedName>>();
    auto failure = std::make_shared<std::optional<std::string>>();
    try {
      *names = ScanStore::repeatedNames(url, limit, leastNameTotal, below);
    } catch (const StoreError& reason) {
      *failure = reason.what();
    }
    main.post([weak, generation, names, failure] {
      const auto alive = weak.lock();
      if (!alive || !(*alive)->namesGen->isCurrent(generation)) return;
      AppModel& model = **alive;
      if (*failure) {
        model._names.set(std::nullopt);
      } else {
        model._names.set(std::move(*names));
      }
      model._namesError.set(std::move(*failure));
      model._namesLoading.set(false);
    });
  });
}

std::vector<NamedFile> AppModel::filesNamed(const std::string& name, std::int64_t limit) const {
  return ScanStore::paths(name, indexURL(), RootPath(_rootPath.get()), limit, namesBelow());
}

void AppModel::refreshIndexes() {
  services.lenses.post([&platform = services.platform, folder = services.folders.index(), weak = Self(self),
                        &main = services.main, &log = services.log] {
    const auto entries = std::make_shared<std::vector<IndexEntry>>();
    try {
      *entries = IndexCatalog::list(platform, folder);
    } catch (const std::system_error& failure) {
      return log.line(failure.what());
    }
    main.post([weak, entries] {
      if (const auto alive = weak.lock()) (*alive)->_indexes.set(std::move(*entries));
    });
  });
}

void AppModel::collectIndexGarbage() {
  services.lenses.post([&platform = services.platform, folder = services.folders.index(), weak = Self(self),
                        &main = services.main, &log = services.log] {
    IndexCatalog::Collected collected;
    try {
      collected = IndexCatalog::collectGarbage(platform, folder);
    } catch (const std::system_error& failure) {
      return log.line(failure.what());
    }
    if (collected.bytes == 0 && collected.indexes == 0) return;
    main.post([weak, collected] {
      const auto alive = weak.lock();
      if (!alive) return;
      (*alive)->_toast.set(fmt::format("reclaimed {} — {} stale {}", humanBytes(collected.bytes),
                                       collected.indexes, collected.indexes == 1 ? "index" : "indexes"));
    });
  });
}

}  // namespace quon
