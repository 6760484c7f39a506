#include "support/TempFolder.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <string_view>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>
#include <vector>

#include "linux_fs/Descriptor.h"

namespace quon::test {
namespace {

constexpr std::uint64_t kWrittenBytes = 65536;

[[noreturn]] void raise(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

std::string makeFolder() {
  const char* base = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe)
  std::string pattern = std::filesystem::canonical(base == nullptr ? "/tmp" : base).string() + "/quon-XXXXXX";
  if (::mkdtemp(pattern.data()) == nullptr) raise("mkdtemp");
  return pattern;
}

struct ListingEnd {
  void operator()(DIR* listing) const { ::closedir(listing); }
};

/// Removes all that can be removed from the open folder; the names of the folders that are not empty.
std::vector<std::string> emptyOfFiles(int folder) {
  const std::unique_ptr<DIR, ListingEnd> listing(
      ::fdopendir(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)));
  std::vector<std::string> left;
  if (!listing) return left;
  while (const dirent* entry = ::readdir(listing.get())) {  // NOLINT(concurrency-mt-unsafe): own stream
    const std::string_view name = entry->d_name;
    if (name == "." || name == ".." || ::unlinkat(folder, entry->d_name, 0) == 0) continue;
    if (::unlinkat(folder, entry->d_name, AT_REMOVEDIR) != 0 && errno != ENOTDIR) left.emplace_back(name);
  }
  return left;
}

/// The folder's child, made accessible; not open when it is no folder or a mount of another file system.
Descriptor openChild(int folder, const std::string& name) {
  if (::fchmodat(folder, name.c_str(), S_IRWXU, 0) != 0) return {};
  Descriptor child(::openat(folder, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  struct stat above {};
  struct stat below {};
  const bool same = child.isOpen() && ::fstat(folder, &above) == 0 && ::fstat(child.get(), &below) == 0 &&
                    above.st_dev == below.st_dev;
  return same ? std::move(child) : Descriptor();
}

}  // namespace

/// Goes down into one folder after the other and comes back up through "..", so that depth costs nothing.
/// Each folder is listed once; what cannot be removed is left.
void removeTree(const std::string& path) {
  ::chmod(path.c_str(), S_IRWXU);
  Descriptor at(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!at.isOpen()) return;
  std::vector<std::vector<std::string>> left{emptyOfFiles(at.get())};  // of each folder on the way down
  while (true) {
    if (!left.back().empty()) {
      Descriptor child = openChild(at.get(), left.back().back());
      if (child.isOpen()) {
        at = std::move(child);
        left.push_back(emptyOfFiles(at.get()));
      } else {
        left.back().pop_back();
      }
      continue;
    }
    left.pop_back();
    if (left.empty()) break;
    Descriptor above(::openat(at.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!above.isOpen()) return;
    at = std::move(above);
    ::unlinkat(at.get(), left.back().back().c_str(), AT_REMOVEDIR);
    left.back().pop_back();
  }
  ::rmdir(path.c_str());
}

TempFolder::TempFolder() : path(makeFolder()) {}
TempFolder::~TempFolder() {
  removeTree(path);
}

std::string TempFolder::at(std::string_view name) const {
  return path + "/" + std::string(name);
}

std::string TempFolder::folder(std::string_view name) const {
  std::filesystem::create_directories(at(name));
  return at(name);
}

std::string TempFolder::file(std::string_view name, std::uint64_t bytes) const {
  std::string full = at(name);
  std::filesystem::create_directories(std::filesystem::path(full).parent_path());
  const Descriptor made(::open(full.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, S_IRUSR | S_IWUSR));
  if (!made.isOpen()) raise("cannot make " + full);
  if (bytes < kWrittenBytes) {
    const std::string content(bytes, 'q');
    if (::write(made.get(), content.data(), content.size()) != static_cast<ssize_t>(content.size()))
      raise(full);
  } else if (::ftruncate(made.get(), static_cast<off_t>(bytes)) != 0) {
    raise(full);
  }
  return full;
}

}  // namespace quon::test
