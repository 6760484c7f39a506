// Depth first, each folder relative to its parent's open descriptor; recursion goes no deeper than the plan.
// A folder's own time is set once everything inside it is made, since each entry made would change it.

#include "maketree/TreeWriter.h"

#include <array>
#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include "maketree/FileShape.h"
#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

/// Of 10,000 names, those that are second names when a file waits for one.
constexpr std::uint32_t secondNameChance = 50;
/// Of 10,000 files made while none waits, those that begin to wait.
constexpr std::uint32_t waitChance = 2'000;

void setTimes(int descriptor, std::string_view name, Random& random) {
  const timespec changed = drawTime(random);
  const std::array<timespec, 2> accessedAndChanged{changed, changed};
  if (::futimens(descriptor, accessedAndChanged.data()) != 0)
    throw SystemFailure("setting the time of", name, errno);
}

}  // namespace

void TreeWriter::fillFolder(std::uint32_t folder, int descriptor) {
  for (std::uint32_t file = 0; file < plan.folders[folder].files; ++file) {
    if (linkSource && random.chance(secondNameChance)) {
      makeSecondName(descriptor);
    } else {
      makeFile(descriptor);
    }
  }
  for (std::uint32_t child = plan.folders[folder].firstChild; child != 0;
       child = plan.folders[child].nextSibling) {
    makeSubfolder(child, descriptor);
  }
  setTimes(descriptor, ".", random);
}

void TreeWriter::makeSubfolder(std::uint32_t folder, int parent) {
  const std::string* name = &names.folderName();
  while (::mkdirat(parent, name->c_str(), 0755) != 0) {
    if (errno != EEXIST) throw SystemFailure("making", *name, errno);
    name = &names.folderName();
  }
  const FileDescriptor opened(
      ::openat(parent, name->c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
  if (!opened) throw SystemFailure("opening", *name, errno);
  fillFolder(folder, opened.get());
}

void TreeWriter::makeFile(int parent) {
  FileDescriptor file;
  const std::string* name = nullptr;
  do {
    name = &names.fileName();
    file = FileDescriptor(
        ::openat(parent, name->c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0644));
    if (!file && errno != EEXIST) throw SystemFailure("making", *name, errno);
  } while (!file);

  const std::uint64_t size = drawFileSize(random);
  if (size > 0 && ::ftruncate(file.get(), static_cast<off_t>(size)) != 0) {
    throw SystemFailure("setting the size of", *name, errno);
  }
  setTimes(file.get(), *name, random);
  if (!linkSource && random.chance(waitChance)) linkSource = std::move(file);
}

void TreeWriter::makeSecondName(int parent) {
  // The first name may be long gone out of reach; the descriptor's entry in /proc is a name of the file that
  // any user may link, while AT_EMPTY_PATH asks for a capability.
  const std::string source = fmt::format("/proc/self/fd/{}", linkSource.get());
  const std::string* name = &names.fileName();
  while (::linkat(AT_FDCWD, source.c_str(), parent, name->c_str(), AT_SYMLINK_FOLLOW) != 0) {
    if (errno != EEXIST) throw SystemFailure("linking", *name, errno);
    name = &names.fileName();
  }
  linkSource = FileDescriptor();
  ++secondNameCount;
}

}  // namespace quon::bench
