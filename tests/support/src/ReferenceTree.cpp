#include "support/ReferenceTree.h"

#include <cerrno>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>

#include "linux_fs/Descriptor.h"
#include "support/TreeEditor.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

struct stat attributes(const std::string& path) {
  struct stat found {};
  if (::lstat(path.c_str(), &found) != 0) throw std::system_error(errno, std::generic_category(), path);
  return found;
}

}  // namespace

ReferenceTree ReferenceTree::of(const std::string& root, bool oneFileSystem) {
  ReferenceTree tree{.root = root, .folders = {}};
  const struct stat top = attributes(root);
  tree.folders[root].mtime = top.st_mtim.tv_sec;
  std::vector<std::string> open{root};
  while (!open.empty()) {
    const std::string path = open.back();
    open.pop_back();
    for (const fs::directory_entry& item : fs::directory_iterator(path)) {
      const struct stat found = attributes(item.path());
      const bool foreign = found.st_dev != top.st_dev;
      if (S_ISDIR(found.st_mode) && !(foreign && oneFileSystem)) {
        tree.folders[item.path()].mtime = found.st_mtim.tv_sec;
        open.push_back(item.path());
      }
      if (S_ISDIR(found.st_mode)) continue;
      tree.folders[path].files.push_back(
          {{item.path().filename(), static_cast<std::uint64_t>(found.st_size),
            static_cast<std::uint64_t>(found.st_blocks) * 512, found.st_mtim.tv_sec},
           {found.st_dev, found.st_ino},
           S_ISREG(found.st_mode) && found.st_nlink > 1});
    }
  }
  return tree;
}

void makeRandomTree(const std::string& root, std::mt19937_64& random) {
  TreeEditor(root, random()).populate(400);
}

}  // namespace quon::test
