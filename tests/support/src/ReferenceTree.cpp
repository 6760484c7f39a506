#include "support/ReferenceTree.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "linux_fs/Descriptor.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

void must(bool done, const std::string& what) {
  if (!done) throw std::system_error(errno, std::generic_category(), what);
}

struct stat lookAt(const std::string& path) {
  struct stat found {};
  must(::lstat(path.c_str(), &found) == 0, path);
  return found;
}

class TreeMaker {
 public:
  TreeMaker(std::string rootPath, std::mt19937_64& source) : folders{std::move(rootPath)}, random(source) {}

  void make() {
    for (int round = 0; round < 60; ++round) {
      const std::string path = freshPath();
      must(::mkdir(path.c_str(), S_IRWXU) == 0, path);
      if (folders.size() < 40 || below(2) == 0) folders.push_back(path);
    }
    for (int round = 0; round < 700; ++round) makeEntry(freshPath());
    // Children before their parents, whose own times would change again.
    for (auto path = files.rbegin(); path != files.rend(); ++path) setTime(*path);
    for (auto path = folders.rbegin(); path != folders.rend(); ++path) setTime(*path);
  }

 private:
  std::uint64_t below(std::uint64_t bound) { return random() % bound; }

  /// A name that nobody bears, in one of the folders.
  std::string freshPath() {
    static const std::vector<std::string> prefixes{"",          "-",        " ",        "...",
                                                   "new\nline", "\xff\xfe", "\xc3\x28", "\x01"};
    while (true) {
      std::string name = prefixes[below(prefixes.size())];
      const std::uint64_t length = below(20) == 0 ? 255 - name.size() : 1 + below(8);
      for (std::uint64_t byte = 0; byte < length; ++byte) {
        const char drawn = static_cast<char>(below(4) == 0 ? below(256) : 'a' + below(26));
        name += drawn == '\0' || drawn == '/' ? 'q' : drawn;
      }
      std::string path = folders[below(folders.size())] + "/" + name;
      struct stat found {};
      if (::lstat(path.c_str(), &found) != 0) return path;
    }
  }

  void makeEntry(const std::string& path) {
    switch (below(10)) {
      case 0:
        must(::mknod(path.c_str(), S_IFIFO | S_IRUSR, 0) == 0, path);
        break;
      case 1:
        must(::mknod(path.c_str(), S_IFSOCK | S_IRUSR, 0) == 0, path);
        break;
      case 2:
        fs::create_symlink(std::string(1 + below(100), 'n'), path);
        break;
      case 3:
        fs::create_directory_symlink(folders[below(folders.size())], path);
        break;
      case 4:
      case 5:
        if (regular.empty()) return;
        fs::create_hard_link(regular[below(regular.size())], path);
        break;
      default:
        makeFile(path);
        regular.push_back(path);
    }
    files.push_back(path);
  }

  void makeFile(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, S_IRUSR | S_IWUSR));
    must(file.isOpen(), path);
    const std::array<std::uint64_t, 6> sizes{0,       below(100),       below(100'000), (1 << 20) - 1,
                                             1 << 20, below(1ULL << 40)};
    const auto size = static_cast<off_t>(sizes[below(sizes.size())]);
    must(::ftruncate(file.get(), size) == 0, path);
    // Allocated at once, not when the system gets round to writing: the reference must see the same blocks.
    if (below(2) == 0) must(::fallocate(file.get(), 0, 0, 1 + static_cast<off_t>(below(20'000))) == 0, path);
  }

  void setTime(const std::string& path) {
    const std::array<std::int64_t, 6> times{0, -1, -1'000'000'000, 1'700'000'000, 4'294'967'296 + 5, 1};
    const timespec time{times[below(times.size())], static_cast<long>(below(1'000'000'000))};
    const std::array<timespec, 2> both{time, time};
    must(::utimensat(AT_FDCWD, path.c_str(), both.data(), AT_SYMLINK_NOFOLLOW) == 0, path);
  }

  std::vector<std::string> folders;
  std::vector<std::string> files;
  std::vector<std::string> regular;
  std::mt19937_64& random;
};

}  // namespace

ReferenceTree ReferenceTree::of(const std::string& root, bool oneFileSystem) {
  ReferenceTree tree{.root = root, .folders = {}};
  const struct stat top = lookAt(root);
  tree.folders[root].mtime = top.st_mtim.tv_sec;
  std::vector<std::string> open{root};
  while (!open.empty()) {
    const std::string path = open.back();
    open.pop_back();
    for (const fs::directory_entry& item : fs::directory_iterator(path)) {
      const struct stat found = lookAt(item.path());
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
  TreeMaker(root, random).make();
}

}  // namespace quon::test
