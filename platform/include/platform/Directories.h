#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <system_error>

namespace quon {

enum class EntryType : std::uint8_t { unknown, regular, directory, symlink, other };

/// One entry of a folder, as the bulk listing returns it. Attributes that the file system does not report
/// have their defaults: the type from the listing itself, everything else as initialised here.
struct DirEntry {
  std::string_view name;  ///< bytes; valid until the next call of the reader
  EntryType type = EntryType::unknown;
  std::uint32_t device = 0;  ///< 0 when not reported
  std::uint64_t fileID = 0;  ///< inode number; 0 when not reported
  std::uint64_t linkCount = 1;
  std::uint64_t logical = 0;   ///< apparent length, bytes
  std::uint64_t physical = 0;  ///< allocated bytes
  std::int64_t mtime = 0;      ///< whole seconds since 1970, rounded down
};

enum class ReadStatus : std::uint8_t {
  more,    ///< entries returned; call again
  end,     ///< nothing left
  failed,  ///< the listing broke off; what was returned before stays true
};

struct DirectoryBatch {
  std::span<const DirEntry> entries;
  ReadStatus status = ReadStatus::end;
  /// Some entry's attributes were refused (a folder that may be read but not searched). An entry that
  /// vanished between the listing and the reading of its attributes is left out and is not a failure.
  bool attributesRefused = false;
  std::error_code error;  ///< the reason, when failed or refused
};

/// The attributes of a folder itself.
struct FolderFacts {
  std::uint32_t device = 0;
  std::uint64_t fileID = 0;
  std::int64_t mtime = 0;  ///< whole seconds since 1970, rounded down
};

/// An open folder. Closed by its destructor.
class OpenDirectory {
 public:
  virtual ~OpenDirectory() = default;
  /// All zero in the unlikely case that the system does not report them.
  [[nodiscard]] virtual FolderFacts facts() const = 0;
  OpenDirectory(const OpenDirectory&) = delete;
  OpenDirectory& operator=(const OpenDirectory&) = delete;

 protected:
  OpenDirectory() = default;
};

using OpenDirectoryRef = std::shared_ptr<OpenDirectory>;

struct OpenedDirectory {
  OpenDirectoryRef directory;  ///< empty on failure
  std::error_code error;
};

/// True for a failure that says nothing about the folder and may have passed a moment later: too many open
/// files, too little memory, an interrupted call.
[[nodiscard]] inline bool isTransient(const std::error_code& error) {
  return error == std::errc::too_many_files_open || error == std::errc::too_many_files_open_in_system ||
         error == std::errc::not_enough_memory || error == std::errc::interrupted;
}

/// Which attributes of each entry to read.
enum class Detail : std::uint8_t {
  full,      ///< everything
  identity,  ///< type and inode number, which the listing itself contains: ten times as fast
};

/// Lists folders through one buffer that it reuses.
/// Threads: confined to the thread that uses it; what it opens may be shared.
class DirectoryReader {
 public:
  virtual ~DirectoryReader() = default;

  /// Opens a folder for reading; a path to anything but a folder, or with a symbolic link anywhere in it, is
  /// refused. It is absolute, or empty for "/", and may be longer than the system's limit for one call.
  [[nodiscard]] virtual OpenedDirectory open(const std::string& path) = 0;
  /// The same for a child of an open folder, however deep that lies.
  [[nodiscard]] virtual OpenedDirectory openChild(const OpenDirectory& parent, const std::string& name) = 0;

  /// Begins the listing of a folder; abandons the one before.
  virtual void start(const OpenDirectoryRef& directory, Detail detail) = 0;
  void start(const OpenDirectoryRef& directory) { start(directory, Detail::full); }
  /// The next entries, at most a few hundred so that a caller can stop soon; "." and ".." are left out.
  [[nodiscard]] virtual DirectoryBatch next() = 0;
};

/// Makes readers. Threads: any.
class DirectoryService {
 public:
  virtual ~DirectoryService() = default;
  /// Allocates the reader's 256 KiB buffer.
  [[nodiscard]] virtual std::unique_ptr<DirectoryReader> makeReader() const = 0;

  /// How many files and folders the process may have open now, all its parts together; what most systems
  /// allow by default where the system sets no limit.
  [[nodiscard]] virtual std::size_t openFileLimit() const { return kUsualOpenFileLimit; }
  static constexpr std::size_t kUsualOpenFileLimit = 1024;
};

}  // namespace quon
