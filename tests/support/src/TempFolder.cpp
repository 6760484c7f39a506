#include "support/TempFolder.h"

#include <cerrno>
#include <cstdlib>
#include <dirent.h>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include "platform_linux/Descriptor.h"

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

/// Removes all files of the open folder; the name of one folder in it, or "" when there is none left.
std::string emptyOfFiles(int folder) {
  const std::unique_ptr<DIR, decltype(&::closedir)> listing(
      ::fdopendir(::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)), &::closedir);
  if (!listing) return "";
  std::string subfolder;
  while (const dirent* entry = ::readdir(listing.get())) {  // NOLINT(concurrency-mt-unsafe): own stream
    const std::string name = entry->d_name;
    if (name == "." || name == ".." || ::unlinkat(folder, entry->d_name, 0) == 0) continue;
    if (::unlinkat(folder, entry->d_name, AT_REMOVEDIR) != 0) subfolder = name;
  }
  return subfolder;
}

}  // namespace

/// Goes down into one folder after the other and comes back up through "..", so that depth costs nothing.
void removeTree(const std::string& path) {
  ::chmod(path.c_str(), S_IRWXU);
  Descriptor at(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  std::size_t depth = 0;
  while (at.isOpen()) {
    const std::string below = emptyOfFiles(at.get());
    if (!below.empty()) {
      ::fchmodat(at.get(), below.c_str(), S_IRWXU, 0);
      Descriptor next(::openat(at.get(), below.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
      if (!next.isOpen()) return;  // a mount point, say: left for whoever made it
      at = std::move(next);
      ++depth;
      continue;
    }
    if (depth == 0) break;
    --depth;
    at = Descriptor(::openat(at.get(), "..", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
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
  const std::string full = at(name);
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
