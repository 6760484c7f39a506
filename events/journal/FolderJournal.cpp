#include "journal/FolderJournal.h"

#include <algorithm>
#include <cerrno>
#include <string_view>
#include <sys/stat.h>
#include <utility>

#include "base/Path.h"

namespace quon {
namespace {

/// Whatever cannot be examined may be there.
bool isGone(const std::string& path) {
  struct stat found {};
  if (::lstat(path.c_str(), &found) == 0) return !S_ISDIR(found.st_mode);
  return errno == ENOENT || errno == ENOTDIR;
}

}  // namespace

FolderJournal::FolderJournal(std::string rootPath, std::size_t most)
    : root(std::move(rootPath)), mostMarks(most) {}

void FolderJournal::begin(std::uint64_t id) {
  coveredSince = id;
  marks = {};
}

void FolderJournal::mark(const std::string& path, std::uint64_t id, bool deep) {
  Mark& mark = marks[path];
  mark.id = id;
  if (deep) mark.deepId = id;
  if (marks.size() <= mostMarks) return;
  fold(0);
  // Half of them: folding costs a system call for each, and must not be due again soon.
  if (marks.size() > mostMarks / 2) forgetOldest();
}

/// The folder above is marked with the change that removed one; a change in that one, seen later, is no more
/// than this.
void FolderJournal::fold(std::uint64_t changedAfter) {
  std::vector<std::pair<std::string, Mark>> gone;
  for (const auto& [path, mark] : marks) {
    if (mark.id > changedAfter && path != root && isGone(path)) gone.emplace_back(path, mark);
  }
  for (const auto& [path, mark] : gone) marks.erase(path);
  for (const auto& [path, mark] : gone) {
    std::string above(parentPath(path));
    while (above != root && isInside(above, root) && isGone(above)) above = parentPath(above);
    Mark& kept = marks[isInside(above, root) ? above : root];
    kept.id = std::max(kept.id, mark.id);
  }
}

void FolderJournal::forgetOldest() {
  std::vector<std::uint64_t> ids;
  ids.reserve(marks.size());
  for (const auto& [path, mark] : marks) ids.push_back(mark.id);
  const auto newestForgotten = ids.end() - 1 - static_cast<std::ptrdiff_t>(mostMarks / 2);
  std::ranges::nth_element(ids, newestForgotten);
  coveredSince = std::max(coveredSince, *newestForgotten);
  boost::unordered::erase_if(marks, [&](const auto& each) { return each.second.id <= coveredSince; });
}

std::vector<FolderEvent> FolderJournal::changesSince(std::uint64_t id) {
  fold(id);
  std::vector<FolderEvent> changes;
  for (const auto& [path, mark] : marks) {
    if (mark.id <= id) continue;
    const std::uint32_t flags = mark.deepId > id ? EventFlag::mustScanSubdirs : 0;
    changes.push_back({.path = path, .flags = flags, .id = mark.id});
  }
  std::ranges::sort(changes, {}, &FolderEvent::id);
  return changes;
}

}  // namespace quon
