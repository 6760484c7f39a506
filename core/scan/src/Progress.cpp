#include "scan/Progress.h"

#include <utility>

#include "base/Checked.h"
#include "scan/DirNode.h"

namespace quon {

Progress::Snapshot Progress::snapshot() const {
  const MutexLock held(lock);
  return {dirs, files, logical, errors, pathOfCurrent()};
}

void Progress::begin(std::string root) {
  const MutexLock held(lock);
  rootPath = std::move(root);
}

void Progress::folderFinished(const DirNode& node) {
  const MutexLock held(lock);
  dirs += 1;
  files = checkedAdd(files, node.directFiles);
  logical = checkedAdd(logical, node.directLogical);
  current = &node;
}

void Progress::folderFailed() {
  const MutexLock held(lock);
  errors += 1;
}

void Progress::end() {
  const MutexLock held(lock);
  currentPath = pathOfCurrent();
  current = nullptr;
}

std::string Progress::pathOfCurrent() const {
  return current == nullptr ? currentPath : current->path(rootPath);
}

}  // namespace quon
