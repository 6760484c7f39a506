#include "support/TreeEditor.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fcntl.h>
#include <filesystem>
#include <functional>
#include <numeric>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "linux_fs/Descriptor.h"
#include "scan/DirNode.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kLarge = 1048576;

std::string parentOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

struct stat attributes(const std::string& path) {
  struct stat found {};
  ::lstat(path.c_str(), &found);
  return found;
}

/// Makes the file where it is missing; nothing where permissions forbid it.
void change(const std::string& path, const std::function<ssize_t(int)>& write) {
  const Descriptor file(::open(path.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (file.isOpen() && write(file.get()) < 0) throw std::system_error(errno, std::generic_category(), path);
}

void appendBytes(const std::string& path, std::uint64_t bytes) {
  change(path, [content = std::string(bytes, 'w')](int file) {
    return ::write(file, content.data(), content.size());
  });
}

void setLength(const std::string& path, std::uint64_t bytes) {
  change(path, [bytes](int file) { return ::ftruncate(file, static_cast<off_t>(bytes)); });
}

}  // namespace

TreeEditor::TreeEditor(std::string folder, std::uint64_t seed, Permissions what)
    : root(std::move(folder)), permissions(what), letter(static_cast<char>('a' + seed % 26)), random(seed) {}

std::vector<FolderEvent> TreeEditor::takeEvents() {
  wroteThroughLink = linked = false;
  return std::exchange(events, {});
}

void TreeEditor::populate(int entries) {
  for (int count = 0; count < entries; ++count) {
    const std::uint64_t kind = below(10);
    kind < 2    ? makeFolder()
    : kind < 4  ? link()
    : kind == 4 ? symlink()
    : kind == 5 ? makeSpecial()
                : makeFile();
  }
  for (const Kind kind : {Kind::noFolder, Kind::folder}) {
    for (const std::string& path : allBelowRoot(kind)) setRandomTime(path);
  }
  (void)takeEvents();
}

void TreeEditor::edit() {
  struct Edit {
    std::uint64_t weight;
    void (TreeEditor::*make)();
    bool removesNames = false;
  };
  static constexpr std::array kEdits{
      Edit{3, &TreeEditor::makeFolder},
      Edit{2, &TreeEditor::append},
      Edit{1, &TreeEditor::truncate},
      Edit{2, &TreeEditor::removeFile, true},
      Edit{1, &TreeEditor::removeFolder, true},
      Edit{2, &TreeEditor::renameFile, true},
      Edit{2, &TreeEditor::moveFolder},
      Edit{1, &TreeEditor::swapFolders},
      Edit{2, &TreeEditor::link},
      Edit{1, &TreeEditor::unlinkName, true},
      Edit{1, &TreeEditor::symlink},
      Edit{1, &TreeEditor::makeSpecial},
      Edit{1, &TreeEditor::setTimes},
      Edit{1, &TreeEditor::replaceFolder, true},
      Edit{2, &TreeEditor::makeFile},
      Edit{4, &TreeEditor::setMode},  // last: only where permissions are edited
  };
  const auto end = kEdits.end() - (permissions == Permissions::kept ? 1 : 0);
  std::uint64_t drawn =
      below(std::accumulate(kEdits.begin(), end, std::uint64_t{0},
                            [](std::uint64_t sum, const Edit& each) { return sum + each.weight; }));
  const auto* chosen = kEdits.data();
  for (; drawn >= chosen->weight; ++chosen) drawn -= chosen->weight;
  (this->*(wroteThroughLink && chosen->removesNames ? &TreeEditor::makeFolder : chosen->make))();
}

void TreeEditor::makeFile() {
  const std::string path =
      anyFolder() + "/" + (below(8) == 0 ? std::string(DirNode::kCacheTag) : freshName());
  const std::array<std::uint64_t, 3> lengths{kLarge - 1, kLarge, kLarge + below(1000) * 4096};
  if (below(4) == 0) {
    setLength(path, lengths[below(lengths.size())]);
  } else {
    appendBytes(path, below(9000));
  }
  wrote("make ", path);
}

void TreeEditor::makeFolder() {
  const std::string path = freshPath();
  if (::mkdir(path.c_str(), 0755) != 0) return;
  appeared(path);
  record("mkdir " + path, {path});
}

void TreeEditor::makeSpecial() {
  const std::string path = freshPath();
  if (::mknod(path.c_str(), (below(2) == 0 ? S_IFIFO : S_IFSOCK) | S_IRUSR, 0) != 0) return;
  record("mknod " + path, {path});
}

void TreeEditor::append() {
  const std::string path = anyBelowRoot(Kind::regular);
  if (path.empty()) return makeFile();
  appendBytes(path, 1 + below(20000));
  wrote("append ", path);
}

void TreeEditor::truncate() {
  const std::string path = anyBelowRoot(Kind::regular);
  if (path.empty()) return makeFile();
  setLength(path, below(2) == 0 ? 0 : kLarge + below(100) * 100000);
  wrote("truncate ", path);
}

void TreeEditor::removeFile() {
  const std::string path = anyBelowRoot(Kind::noFolder);
  if (path.empty()) return makeFile();
  ::unlink(path.c_str());
  record("remove " + path, {path});
}

void TreeEditor::removeFolder() {
  const std::string path = anyBelowRoot(Kind::folder);
  if (path.empty() || below(2) == 0) return makeFile();
  std::error_code partly;
  fs::remove_all(path, partly);
  changed(path);
  record("remove tree " + path, {path});
}

void TreeEditor::renameFile() {
  const std::string from = anyBelowRoot(Kind::regular);
  if (from.empty()) return makeFile();
  // Now and then over an existing file.
  const std::string to = below(3) == 0 ? anyBelowRoot(Kind::regular) : freshPath();
  if (::rename(from.c_str(), to.c_str()) != 0) return;
  record("rename " + from + " to " + to, {from, to});
}

void TreeEditor::moveFolder() {
  const std::string from = anyBelowRoot(Kind::folder);
  if (from.empty()) return makeFolder();
  const std::string to = freshPath();
  if (::rename(from.c_str(), to.c_str()) != 0) return;  // into itself, say
  appeared(to);
  record("move " + from + " to " + to, {from, to});
}

void TreeEditor::swapFolders() {
  const std::string a = anyBelowRoot(Kind::folder);
  const std::string b = anyBelowRoot(Kind::folder);
  if (a.empty() || ::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) != 0) return;
  appeared(a);
  appeared(b);
  record("swap " + a + " and " + b, {a, b});
}

void TreeEditor::link() {
  const std::string from = anyBelowRoot(Kind::regular);
  if (from.empty()) return makeFile();
  const std::string to = freshPath();
  if (::link(from.c_str(), to.c_str()) != 0) return;
  linked = true;
  record("link " + from + " as " + to, {to});  // the folder of the first name gets no event
}

void TreeEditor::unlinkName() {
  std::vector<std::string> names = allBelowRoot(Kind::regular);
  std::erase_if(names, [](const std::string& path) { return attributes(path).st_nlink < 2; });
  if (names.empty()) return makeFile();
  const std::string path = names[below(names.size())];
  ::unlink(path.c_str());
  record("unlink " + path, {path});
}

void TreeEditor::symlink() {
  const std::string path = freshPath();
  const std::array<std::string, 3> targets{"..", "nowhere", anyFolder()};
  if (::symlink(targets[below(targets.size())].c_str(), path.c_str()) != 0) return;
  record("symlink " + path, {path});
}

void TreeEditor::setTimes() {
  const std::string path = anyBelowRoot(below(2) == 0 ? Kind::folder : Kind::noFolder);
  if (path.empty()) return makeFile();
  setRandomTime(path);
  wrote("touch ", path);
}

/// Another folder under the same name, with children of the same names.
void TreeEditor::replaceFolder() {
  const std::string path = anyBelowRoot(Kind::folder);
  if (path.empty()) return makeFolder();
  const std::string copy = parentOf(path) + "/" + freshName();
  std::error_code partly;
  fs::copy(path, copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks, partly);
  fs::remove_all(path, partly);
  if (::rename(copy.c_str(), path.c_str()) != 0) {
    appeared(copy);
    return record("copy " + path + " as " + copy, {copy});
  }
  appeared(path);
  record("replace " + path, {path});
}

void TreeEditor::setMode() {
  const std::string path = anyBelowRoot(Kind::folder);
  const mode_t mode = below(3) == 0 && !wroteThroughLink && !linked ? 0 : 0755;
  if (path.empty() || ::chmod(path.c_str(), mode) != 0) return;
  changed(path);
  record((mode == 0 ? "close " : "open ") + path, {path});
}

std::vector<std::string> TreeEditor::allBelowRoot(Kind kind) const {
  std::vector<std::string> found;
  for (const fs::directory_entry& entry :
       fs::recursive_directory_iterator(root, fs::directory_options::skip_permission_denied)) {
    const fs::file_status status = entry.symlink_status();
    if (kind == Kind::regular ? fs::is_regular_file(status)
                              : fs::is_directory(status) == (kind == Kind::folder))
      found.push_back(entry.path().string());
  }
  std::ranges::sort(found);  // so that the seed alone decides
  return found;
}

std::string TreeEditor::anyBelowRoot(Kind kind) {
  const std::vector<std::string> found = allBelowRoot(kind);
  return found.empty() ? "" : found[below(found.size())];
}

std::string TreeEditor::anyFolder() {
  const std::string found = anyBelowRoot(Kind::folder);
  return found.empty() || below(5) == 0 ? root : found;
}

std::string TreeEditor::freshName() {
  static const std::array<std::string, 6> kBegins{"", "-", " ", "...", "\xff\xfe", "\xc3\x28"};
  // Another editor of the same tree, begun with the next seed, makes other names.
  std::string name = kBegins[below(4) == 0 ? below(kBegins.size()) : 0] + letter + std::to_string(made++);
  if (below(10) == 0) {
    name += "\n\u00e9";
    for (std::uint64_t left = below(4) == 0 ? 255 - name.size() : below(8); left > 0; --left) {
      const char byte = static_cast<char>(below(256));
      name += byte == '\0' || byte == '/' ? 'q' : byte;
    }
  }
  return name;
}

void TreeEditor::setRandomTime(const std::string& path) {
  const std::array<std::int64_t, 6> seconds{
      0, -1, -1'000'000'000, 1, 4'294'967'296 + 5, static_cast<std::int64_t>(below(4'000'000'000))};
  const timespec time{seconds[below(seconds.size())], static_cast<long>(below(1'000'000'000))};
  const std::array<timespec, 2> both{time, time};
  ::utimensat(AT_FDCWD, path.c_str(), both.data(), AT_SYMLINK_NOFOLLOW);
}

void TreeEditor::changed(const std::string& path) {
  events.push_back({path, 0, 0});
}
void TreeEditor::appeared(const std::string& path) {
  events.push_back({path, EventFlag::mustScanSubdirs, 0});
}
void TreeEditor::wrote(const std::string& what, const std::string& path) {
  const struct stat found = attributes(path);
  if (!S_ISDIR(found.st_mode) && found.st_nlink > 1) wroteThroughLink = true;
  record(what + path, {path});
}
void TreeEditor::record(std::string what, std::initializer_list<std::string> paths) {
  for (const std::string& path : paths) changed(parentOf(path));
  done.push_back(std::move(what));
}

}  // namespace quon::test
