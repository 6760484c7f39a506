// The least that a walk by getdents64 and statx can cost. Each thread takes a folder off the shared stack,
// opens it relative to its parent's descriptor, releases its reference to the parent, reads the entries into
// a buffer of its own and asks statx once for each. Subfolders go onto the stack in one batch for each
// buffer. A folder without subfolders costs no allocation; one with subfolders costs one object and one block
// of names for each buffer. Nothing is kept of a file but its share in the thread's sums, and entries are
// taken in the order in which the file system gives them.

#include "floor/FloorWalk.h"

#include <cerrno>
#include <cstring>
#include <dirent.h>
#include <exception>
#include <fcntl.h>
#include <filesystem>
#include <memory>
#include <optional>
#include <sys/stat.h>
#include <system_error>
#include <thread>
#include <vector>

#include "floor/PendingDirectories.h"
#include "shared/FileDescriptor.h"
#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

constexpr std::size_t bufferBytes = std::size_t{256} * 1024;
constexpr std::uint64_t blockBytes = 512;  // the unit of stx_blocks on every file system

struct Device {
  std::uint32_t major;
  std::uint32_t minor;
};

/// One thread's part of the walk.
class Worker {
 public:
  Worker(PendingDirectories& shared, Device rootDevice)
      : stack(shared), device(rootDevice), buffer(std::make_unique_for_overwrite<char[]>(bufferBytes)) {}

  /// Lists `root`, when given one, then folders off the stack until the walk is over.
  void run(FileDescriptor root) {
    try {
      if (root) list(std::move(root));
      while (const std::optional<PendingDirectory> next = stack.pop()) open(*next);
    } catch (...) {
      broken = std::current_exception();
      stack.abandon();
    }
  }

  /// After the thread has ended: its sums, or the exception that ended it.
  [[nodiscard]] const FloorSums& result() const {
    if (broken) std::rethrow_exception(broken);
    return sums;
  }

 private:
  void open(const PendingDirectory& folder) {
    FileDescriptor opened(
        ::openat(folder.parent->descriptor(), folder.name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (!opened) countFailure("opening", folder.parent->descriptor(), folder.name, errno);
    folder.parent->release();
    if (opened) list(std::move(opened));
  }

  void list(FileDescriptor opened) {
    const int descriptor = opened.get();
    OpenDirectory* shared = nullptr;
    while (const std::size_t bytes = readEntries(descriptor)) {
      measureEntries(descriptor, bytes);
      if (subfolders.empty()) continue;
      if (shared == nullptr) shared = OpenDirectory::take(opened);
      publishSubfolders(*shared);
    }
    if (shared != nullptr) shared->release();
  }

  /// Fills the buffer; 0 at the end of the folder, or when it cannot be read further.
  [[nodiscard]] std::size_t readEntries(int descriptor) {
    const ssize_t bytes = ::getdents64(descriptor, buffer.get(), bufferBytes);
    if (bytes >= 0) return static_cast<std::size_t>(bytes);
    countFailure("listing", descriptor, "", errno);
    return 0;
  }

  /// Adds up the entries in the buffer and leaves in `subfolders` those to walk.
  void measureEntries(int descriptor, std::size_t bytes) {
    subfolders.clear();
    nameBytes = 0;
    for (std::size_t at = 0; at < bytes;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer.get() + at);
      at += entry->d_reclen;
      const char* name = entry->d_name;
      if (name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'))) continue;
      struct statx facts;
      if (::statx(descriptor, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_BASIC_STATS, &facts) != 0) {
        countFailure("statx of", descriptor, name, errno);
        continue;
      }
      if (S_ISDIR(facts.stx_mode)) {
        if (facts.stx_dev_major != device.major || facts.stx_dev_minor != device.minor) continue;
        ++sums.folders;
        const std::size_t length = std::strlen(name) + 1;
        subfolders.push_back({name, length});
        nameBytes += length;
      } else {
        ++sums.files;
      }
      sums.logical += facts.stx_size;
      sums.physical += facts.stx_blocks * blockBytes;
    }
  }

  void publishSubfolders(OpenDirectory& parent) {
    auto chunk = std::make_unique_for_overwrite<char[]>(nameBytes);
    char* end = chunk.get();
    batch.clear();
    for (const auto& [name, length] : subfolders) {
      std::memcpy(end, name, length);
      batch.push_back({&parent, end});
      end += length;
    }
    parent.keep(std::move(chunk), static_cast<std::uint32_t>(batch.size()));
    stack.push(batch);
  }

  /// `name` in the open folder, or that folder itself when empty.
  void countFailure(const char* operation, int folder, const char* name, int error) {
    if (sums.failures++ > 0) return;
    std::error_code unknown;  // then the bare name has to do
    const auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(folder), unknown);
    sums.firstFailure = systemReason(operation, (*name == '\0' ? path : path / name).string(), error);
  }

  struct NameInBuffer {
    const char* name;
    std::size_t length;  ///< with the closing NUL
  };

  PendingDirectories& stack;
  const Device device;
  const std::unique_ptr<char[]> buffer;
  FloorSums sums;
  std::vector<NameInBuffer> subfolders;
  std::size_t nameBytes = 0;
  std::vector<PendingDirectory> batch;
  std::exception_ptr broken;
};

void add(FloorSums& total, const FloorSums& part) {
  total.logical += part.logical;
  total.physical += part.physical;
  total.files += part.files;
  total.folders += part.folders;
  total.failures += part.failures;
  if (total.firstFailure.empty()) total.firstFailure = part.firstFailure;
}

}  // namespace

FloorSums walkFloor(const std::string& root, unsigned threads) {
  FileDescriptor opened(::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened) throw SystemFailure("opening", root, errno);
  struct statx facts;
  if (::statx(opened.get(), "", AT_EMPTY_PATH | AT_NO_AUTOMOUNT, STATX_BASIC_STATS, &facts) != 0) {
    throw SystemFailure("statx of", root, errno);
  }

  PendingDirectories stack(threads);
  std::vector<std::unique_ptr<Worker>> workers;
  for (unsigned thread = 0; thread < threads; ++thread) {
    workers.push_back(std::make_unique<Worker>(stack, Device{facts.stx_dev_major, facts.stx_dev_minor}));
  }
  {
    std::vector<std::jthread> others;
    try {
      for (unsigned thread = 1; thread < threads; ++thread) {
        others.emplace_back([&worker = *workers[thread]] { worker.run(FileDescriptor()); });
      }
    } catch (...) {
      stack.abandon();  // else those that did start would wait for the others without end
      throw;
    }
    workers[0]->run(std::move(opened));
  }

  FloorSums total{.logical = facts.stx_size, .physical = facts.stx_blocks * blockBytes};
  for (const auto& worker : workers) add(total, worker->result());
  return total;
}

}  // namespace quon::bench
