#include "model/lenses/ReclaimLens.h"

#include <system_error>
#include <utility>

#include "../FilePaths.h"
#include "lenses/KnownMarkers.h"
#include "platform/Files.h"

namespace quon {
namespace {

/// Where things are by the names that the tree has for them: it contains no links, while the home folder is
/// behind one on some systems.
Reclaim::Surroundings surroundingsOf(const FileService& files, const Folders& folders,
                                     std::string_view rootPath) {
  std::error_code missing;
  const auto of = [&](const std::string& folder) {
    return files.canonical(folder, missing).value_or(folder);
  };
  return {.rootPath = std::string(rootPath),
          .home = of(folders.home),
          // A link in the place of the caches may lead to where other things are as well.
          .cacheHome = withoutLinksAbove(files, folders.cacheHome),
          .configHome = of(folders.configHome),
          .dataHome = of(folders.dataHome),
          .mountPoints = files.mountPoints(),
          .userID = folders.userID};
}

}  // namespace

ReclaimLens::ReclaimLens(ModelState& model)
    : _reclaim(model),
      _reclaimScanning(model),
      reclaimAllCache(model),
      _reclaimAllScanning(model),
      state(model),
      job(model, QueueName::reclaim, Job::Reads::treeInParts, _reclaimScanning,
          {.prepare = [this] { return work(state.scopePath()); },
           .deliver = [this](Groups&& groups) { _reclaim.set(std::move(groups)); },
           .clear = [this] { _reclaim.set(std::nullopt); }}),
      jobOfAll(model, QueueName::reclaim, Job::Reads::treeInParts, _reclaimAllScanning,
               {.prepare = [this] { return work(state.shownTree()->root.path()); },
                .deliver = [this](Groups&& groups) { reclaimAllCache.set(std::move(groups)); },
                .clear = [this] { reclaimAllCache.set(std::nullopt); }}) {}

FollowingJob<ReclaimLens::Groups>::Work ReclaimLens::work(std::string path) const {
  return [tree = state.shownTree(), path = std::move(path), metric = state._metric.get(),
          &files = state.services.platform.files,
          folders = state.services.folders](const IsVoid& isVoid) -> std::optional<Groups> {
    const Reclaim::Surroundings surroundings = surroundingsOf(files, folders, tree->root.prefix());
    KnownMarkers& markers = *tree->markers;
    // The tree is read again with what the disk said, until that raises no further question: a live batch
    // never waits for the disk behind this reader. What is known by then serves the next start, too.
    for (;;) {
      std::optional<Groups> groups;
      {
        const TreeGate::Reading reading(*tree->gate);
        if (isVoid()) return std::nullopt;
        const RefPtr<DirNode> scope = tree->folderAt(path);
        if (!scope) return Groups();
        groups = Reclaim::groups(scope, metric, surroundings, markers, isVoid);
        if (!groups || !markers.hasNewQuestions()) return groups;
        groups.reset();  // its nodes may leave the tree while the disk is read
      }
      if (!markers.findOut(DiskMarkers(), isVoid)) return std::nullopt;
    }
  };
}

void ReclaimLens::reclaimAllGroups() {
  state.perform([this] { wantsAll = true; });
}

void ReclaimLens::deriveLens(bool isShown) {
  job.follow(state.viewKey(), isShown);
  ViewKey whole = state.viewKey();
  whole.scopePath.clear();
  jobOfAll.follow(whole, wantsAll);
}

}  // namespace quon
