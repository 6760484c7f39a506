#include "watch/MountTable.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace quon {

MountTable::MountTable() : table(openMounts()), mounts(readSorted()) {}

std::vector<Mount> MountTable::readSorted() const {
  std::vector<Mount> found = readMounts(table);
  std::sort(found.begin(), found.end());
  return found;
}

std::vector<std::string> MountTable::changes() {
  std::vector<Mount> now = readSorted();
  std::vector<Mount> differing;
  std::set_symmetric_difference(mounts.begin(), mounts.end(), now.begin(), now.end(),
                                std::back_inserter(differing));
  mounts = std::move(now);
  std::vector<std::string> points;
  points.reserve(differing.size());
  for (Mount& mount : differing) points.push_back(std::move(mount.point));
  return points;
}

}  // namespace quon
