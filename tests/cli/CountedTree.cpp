#include "CountedTree.h"

#include <array>
#include <cerrno>
#include <fts.h>
#include <memory>
#include <set>
#include <sys/stat.h>
#include <system_error>
#include <utility>

namespace quon::test {
namespace {

constexpr std::uint64_t kBlock = 512;

struct WalkEnd {
  void operator()(FTS* walk) const { ::fts_close(walk); }
};

}  // namespace

CountedTree CountedTree::of(const std::string& path) {
  CountedTree counted;
  std::string root = path;
  std::array<char*, 2> roots{root.data(), nullptr};
  const std::unique_ptr<FTS, WalkEnd> walk(
      ::fts_open(roots.data(), FTS_PHYSICAL | FTS_NOCHDIR | FTS_XDEV, nullptr));
  if (!walk) throw std::system_error(errno, std::generic_category(), path);
  std::set<std::pair<dev_t, ino_t>> seen;
  while (const FTSENT* entry = ::fts_read(walk.get())) {  // NOLINT(concurrency-mt-unsafe): own walk
    if (entry->fts_info == FTS_DP || entry->fts_info == FTS_DNR) continue;  // seen before as FTS_D
    if (entry->fts_info == FTS_D) {
      if (entry->fts_level > FTS_ROOTLEVEL) ++counted.dirs;
      continue;
    }
    const struct stat& facts = *entry->fts_statp;
    if (facts.st_nlink > 1 && !seen.insert({facts.st_dev, facts.st_ino}).second) {
      ++counted.furtherNames;
      continue;
    }
    const auto logical = static_cast<std::uint64_t>(facts.st_size);
    const std::uint64_t physical = static_cast<std::uint64_t>(facts.st_blocks) * kBlock;
    ++counted.files;
    counted.logical += logical;
    counted.physical += physical;
    counted.list.push_back({entry->fts_path, logical, physical, facts.st_mtim.tv_sec});
  }
  return counted;
}

}  // namespace quon::test
