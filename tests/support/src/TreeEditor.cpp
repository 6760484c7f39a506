#include "support/TreeEditor.h"

#include <algorithm>
#include <array>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
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

void setLength(const std::string& path, std::uint64_t bytes) {
  const Descriptor file(::open(path.c_str(), O_CREAT | O_WRONLY | O_NOFOLLOW | O_CLOEXEC, 0644));
  if (file.isOpen() && ::ftruncate(file.get(), static_cast<off_t>(bytes)) != 0)
    throw std::runtime_error(path);
}

void writeBytes(const std::string& path, std::uint64_t bytes) {
  const Descriptor file(::open(path.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_NOFOLLOW | O_CLOEXEC, 0644));
  const std::string content(bytes, 'w');
  if (file.isOpen() && ::write(file.get(), content.data(), content.size()) < 0)
    throw std::runtime_error(path);
}

}  // namespace

TreeEditor::TreeEditor(std::string folder, std::uint64_t seed, Permissions what)
    : root(std::move(folder)), permissions(what), letter(static_cast<char>('a' + seed % 26)), random(seed) {}

std::vector<FolderEvent> TreeEditor::takeEvents() {
  wroteThroughLink = linked = false;
  return std::exchange(events, {});
}

void TreeEditor::populate(int edits) {
  for (int count = 0; count < edits; ++count) {
    const std::uint64_t kind = below(8);
    kind < 2 ? makeFolder() : kind == 2 ? link() : kind == 3 ? symlink() : makeFile();
  }
  events.clear();
}

void TreeEditor::edit() {
  struct Kind {
    std::uint64_t weight;
    void (TreeEditor::*make)();
    bool removesNames = false;
  };
  static constexpr std::array kKinds{
      Kind{3, &TreeEditor::makeFolder},
      Kind{2, &TreeEditor::append},
      Kind{1, &TreeEditor::truncate},
      Kind{2, &TreeEditor::removeFile, true},
      Kind{1, &TreeEditor::removeFolder, true},
      Kind{2, &TreeEditor::renameFile, true},
      Kind{2, &TreeEditor::moveFolder},
      Kind{1, &TreeEditor::swapFolders},
      Kind{2, &TreeEditor::link},
      Kind{1, &TreeEditor::unlinkName, true},
      Kind{1, &TreeEditor::symlink},
      Kind{1, &TreeEditor::setTimes},
      Kind{1, &TreeEditor::replaceFolder, true},
      Kind{2, &TreeEditor::makeFile},
      Kind{4, &TreeEditor::setMode},  // only where permissions are edited
  };
  std::uint64_t drawn = below(permissions == Permissions::kept ? 22 : 26);
  const Kind* kind = kKinds.data();
  for (; drawn >= kind->weight; ++kind) drawn -= kind->weight;
  (this->*(wroteThroughLink && kind->removesNames ? &TreeEditor::makeFolder : kind->make))();
}

void TreeEditor::makeFile() {
  const std::string folder = anyFolder();
  const std::string path = folder + "/" + (below(8) == 0 ? std::string(DirNode::kCacheTag) : freshName());
  if (below(4) == 0) {
    setLength(path, kLarge + below(1000) * 4096);
  } else {
    writeBytes(path, below(9000));
  }
  wrote(path);
  note("make " + path);
}

void TreeEditor::makeFolder() {
  const std::string path = anyFolder() + "/" + freshName();
  if (::mkdir(path.c_str(), 0755) != 0) return;
  changedParent(path);
  appeared(path);
  note("mkdir " + path);
}

void TreeEditor::append() {
  const std::string path = anyBelowRoot(false);
  if (path.empty()) return makeFile();
  writeBytes(path, 1 + below(20000));
  wrote(path);
  note("append " + path);
}

void TreeEditor::truncate() {
  const std::string path = anyBelowRoot(false);
  if (path.empty()) return makeFile();
  setLength(path, below(2) == 0 ? 0 : kLarge + below(100) * 100000);
  wrote(path);
  note("truncate " + path);
}

void TreeEditor::removeFile() {
  const std::string path = anyBelowRoot(false);
  if (path.empty()) return makeFile();
  ::unlink(path.c_str());
  changedParent(path);
  note("remove " + path);
}

void TreeEditor::removeFolder() {
  const std::string path = anyBelowRoot(true);
  if (path.empty() || below(2) == 0) return makeFile();
  std::error_code partly;
  fs::remove_all(path, partly);
  changed(path);
  changedParent(path);
  note("remove tree " + path);
}

void TreeEditor::renameFile() {
  const std::string from = anyBelowRoot(false);
  if (from.empty()) return makeFile();
  // Now and then over an existing file.
  std::string to = below(3) == 0 ? anyBelowRoot(false) : anyFolder() + "/" + freshName();
  if (::rename(from.c_str(), to.c_str()) != 0) return;
  changedParent(from);
  changedParent(to);
  note("rename " + from + " to " + to);
}

void TreeEditor::moveFolder() {
  const std::string from = anyBelowRoot(true);
  if (from.empty()) return makeFolder();
  const std::string to = anyFolder() + "/" + freshName();
  if (::rename(from.c_str(), to.c_str()) != 0) return;  // into itself, say
  changedParent(from);
  changedParent(to);
  appeared(to);
  note("move " + from + " to " + to);
}

void TreeEditor::swapFolders() {
  const std::string a = anyBelowRoot(true);
  const std::string b = anyBelowRoot(true);
  if (a.empty() || ::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) != 0) return;
  changedParent(a);
  changedParent(b);
  appeared(a);
  appeared(b);
  note("swap " + a + " and " + b);
}

void TreeEditor::link() {
  const std::string from = anyBelowRoot(false);
  if (from.empty()) return makeFile();
  const std::string to = anyFolder() + "/" + freshName();
  if (::link(from.c_str(), to.c_str()) != 0) return;
  linked = true;
  changedParent(to);  // the folder of the first name is told nothing
  note("link " + from + " as " + to);
}

void TreeEditor::unlinkName() {
  for (int tries = 0; tries < 8; ++tries) {
    const std::string path = anyBelowRoot(false);
    struct stat found {};
    if (path.empty() || ::lstat(path.c_str(), &found) != 0 || found.st_nlink < 2) continue;
    ::unlink(path.c_str());
    changedParent(path);
    note("unlink " + path);
    return;
  }
  makeFile();
}

void TreeEditor::symlink() {
  const std::string path = anyFolder() + "/" + freshName();
  if (::symlink(below(2) == 0 ? ".." : "nowhere", path.c_str()) != 0) return;
  changedParent(path);
  note("symlink " + path);
}

void TreeEditor::setTimes() {
  const std::string path = anyBelowRoot(below(2) == 0);
  if (path.empty()) return makeFile();
  const timespec when{static_cast<time_t>(below(4000000000)), 5};
  const timespec times[2] = {when, when};
  ::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW);
  wrote(path);
  note("touch " + path);
}

/// Another folder under the same name, with children of the same names.
void TreeEditor::replaceFolder() {
  const std::string path = anyBelowRoot(true);
  if (path.empty()) return makeFolder();
  const std::string copy = parentOf(path) + "/" + freshName();
  std::error_code partly;
  fs::copy(path, copy, fs::copy_options::recursive | fs::copy_options::copy_symlinks, partly);
  fs::remove_all(path, partly);
  if (::rename(copy.c_str(), path.c_str()) != 0) {
    changedParent(copy);
    return appeared(copy);
  }
  changedParent(path);
  appeared(path);
  note("replace " + path);
}

void TreeEditor::setMode() {
  const std::string path = anyBelowRoot(true);
  const mode_t mode = below(3) == 0 && !wroteThroughLink && !linked ? 0 : 0755;
  if (path.empty() || ::chmod(path.c_str(), mode) != 0) return;
  changed(path);
  changedParent(path);
  note((mode == 0 ? "close " : "open ") + path);
}

std::string TreeEditor::anyFolder() {
  const std::string found = anyBelowRoot(true);
  return found.empty() || below(5) == 0 ? root : found;
}

std::string TreeEditor::anyBelowRoot(bool folder) {
  std::vector<std::string> found;
  for (const fs::directory_entry& entry :
       fs::recursive_directory_iterator(root, fs::directory_options::skip_permission_denied)) {
    const fs::file_status status = entry.symlink_status();
    if (folder ? fs::is_directory(status) : fs::is_regular_file(status))
      found.push_back(entry.path().string());
  }
  if (found.empty()) return "";
  std::ranges::sort(found);  // so that the seed alone decides
  return found[below(found.size())];
}

std::string TreeEditor::freshName() {
  // Another editor of the same tree, begun with the next seed, makes other names.
  std::string name = letter + std::to_string(made++);
  if (below(10) == 0) name += "\xff\n é";
  return name;
}

std::uint64_t TreeEditor::below(std::uint64_t bound) {
  return random() % bound;
}

void TreeEditor::changed(const std::string& path) {
  events.push_back({path, 0, 0});
}
void TreeEditor::changedParent(const std::string& path) {
  changed(parentOf(path));
}
void TreeEditor::appeared(const std::string& path) {
  events.push_back({path, EventFlag::mustScanSubdirs, 0});
}
void TreeEditor::wrote(const std::string& path) {
  struct stat found {};
  if (::lstat(path.c_str(), &found) == 0 && !S_ISDIR(found.st_mode) && found.st_nlink > 1)
    wroteThroughLink = true;
  changedParent(path);
}
void TreeEditor::note(const std::string& what) {
  done.push_back(what);
}

}  // namespace quon::test
