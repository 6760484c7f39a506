#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>
#include <vector>

#include "linux_fs/Descriptor.h"
#include "linux_fs/LinuxDirectories.h"
#include "linux_fs/LinuxFiles.h"
#include "platform/Directories.h"
#include "support/ChildProcess.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

struct Listed {
  std::map<std::string, DirEntry> entries;  // whose own names are dangling
  std::size_t delivered = 0;
  std::size_t largestBatch = 0;
  ReadStatus end = ReadStatus::more;
};

Listed listAll(DirectoryReader& reader, const OpenDirectoryRef& folder, Detail detail = Detail::full) {
  Listed all;
  reader.start(folder, detail);
  while (all.end == ReadStatus::more) {
    const DirectoryBatch batch = reader.next();
    for (const DirEntry& entry : batch.entries) all.entries[std::string(entry.name)] = entry;
    all.delivered += batch.entries.size();
    all.largestBatch = std::max(all.largestBatch, batch.entries.size());
    all.end = batch.status;
  }
  return all;
}

class Directories : public testing::Test {
 protected:
  Listed list(const std::string& path) {
    const OpenedDirectory opened = reader->open(path);
    EXPECT_TRUE(opened.directory) << opened.error.message();
    return opened.directory ? listAll(*reader, opened.directory) : Listed{};
  }

  TempFolder temp;
  std::unique_ptr<DirectoryReader> reader = LinuxDirectories().makeReader();
};

TEST_F(Directories, ListsEveryEntryAsLstatReportsIt) {
  std::set<std::string> names;
  for (int number = 0; number < 3000; ++number) {  // more than a buffer of long names holds
    std::string name = "file " + std::to_string(number);
    if (number % 2 == 0) name.append(255 - name.size(), '\xff');
    names.insert(temp.file(name, static_cast<std::uint64_t>(number) * 37).substr(temp.path.size() + 1));
  }
  for (const std::string name : {"new\nline", "-rf", "...", "..x", ".x", " ", "\xc3\x28", "été"}) {
    temp.file(name, 3 << 20);
    names.insert(name);
  }
  std::filesystem::create_hard_link(temp.at(" "), temp.at("link"));
  std::filesystem::create_symlink("nowhere", temp.at("dangling"));
  ASSERT_EQ(::mkfifo(temp.at("fifo").c_str(), S_IRUSR), 0);
  temp.folder("folder/below");
  names.merge(std::set<std::string>{"link", "dangling", "fifo", "folder"});

  const Listed listed = list(temp.path);
  EXPECT_EQ(listed.end, ReadStatus::end);
  EXPECT_EQ(listed.delivered, names.size());
  EXPECT_LE(listed.largestBatch, 500U);
  std::error_code error;
  const PathFacts folder = LinuxFiles().facts(temp.path, error).value();
  const FolderFacts opened = reader->open(temp.path).directory->facts();
  EXPECT_EQ(opened.device, folder.device);
  EXPECT_EQ(opened.fileID, folder.fileID);
  EXPECT_EQ(opened.mtime, folder.mtime);
  const Listed identities = listAll(*reader, reader->open(temp.path).directory, Detail::identity);
  for (const std::string& name : names) {
    ASSERT_TRUE(listed.entries.contains(name)) << testing::PrintToString(name);
    const DirEntry& entry = listed.entries.at(name);
    EXPECT_EQ(identities.entries.at(name).type, entry.type);
    EXPECT_EQ(identities.entries.at(name).fileID, entry.fileID);
    struct stat truth {};
    ASSERT_EQ(::lstat(temp.at(name).c_str(), &truth), 0);
    EXPECT_EQ(entry.type, S_ISREG(truth.st_mode)   ? EntryType::regular
                          : S_ISDIR(truth.st_mode) ? EntryType::directory
                          : S_ISLNK(truth.st_mode) ? EntryType::symlink
                                                   : EntryType::other);
    EXPECT_EQ(entry.fileID, truth.st_ino);
    EXPECT_EQ(entry.linkCount, truth.st_nlink);
    EXPECT_EQ(entry.logical, static_cast<std::uint64_t>(truth.st_size));
    EXPECT_EQ(entry.physical, static_cast<std::uint64_t>(truth.st_blocks) * 512);
    EXPECT_EQ(entry.mtime, truth.st_mtim.tv_sec);
    EXPECT_EQ(entry.device, folder.device);
  }
}

TEST_F(Directories, NothingButAFolderIsOpened) {
  temp.file("file");
  temp.folder("folder");
  std::filesystem::create_directory_symlink("folder", temp.at("link"));
  ASSERT_EQ(::mkfifo(temp.at("fifo").c_str(), S_IRUSR | S_IWUSR), 0);
  const OpenedDirectory parent = reader->open(temp.path);
  ASSERT_TRUE(parent.directory);
  EXPECT_TRUE(reader->openChild(*parent.directory, "folder").directory);
  for (const std::string name : {"file", "link", "fifo", "missing"}) {
    EXPECT_FALSE(reader->open(temp.at(name)).directory) << name;
    EXPECT_FALSE(reader->openChild(*parent.directory, name).directory) << name;
  }
  EXPECT_EQ(reader->open(temp.at("missing")).error, std::errc::no_such_file_or_directory);
  EXPECT_TRUE(list("").entries.contains("proc"));
}

TEST_F(Directories, AccessTimesAreNotChanged) {
  temp.file("folder/file");
  const timespec longAgo{.tv_sec = 946684800, .tv_nsec = 0};
  const std::array<timespec, 2> times{longAgo, {.tv_sec = 0, .tv_nsec = UTIME_OMIT}};
  ASSERT_EQ(::utimensat(AT_FDCWD, temp.at("folder").c_str(), times.data(), 0), 0);
  EXPECT_EQ(list(temp.at("folder")).delivered, 1U);
  struct stat after {};
  ASSERT_EQ(::stat(temp.at("folder").c_str(), &after), 0);
  EXPECT_EQ(after.st_atim.tv_sec, longAgo.tv_sec);
}

/// Steps down through folders that it makes, and keeps their path.
struct Descent {
  explicit Descent(const std::string& top) : at(::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)) {}
  void into(const std::string& name) {
    ASSERT_EQ(::mkdirat(at.get(), name.c_str(), S_IRWXU), 0);
    at = Descriptor(::openat(at.get(), name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    path += "/" + name;
  }
  [[nodiscard]] ino_t inode() const {
    struct stat truth {};
    EXPECT_EQ(::fstat(at.get(), &truth), 0);
    return truth.st_ino;
  }

  Descriptor at;
  std::string path;
};

TEST_F(Directories, PathsOfAnyLengthAreReachedAndLedAwayByNoLink) {
  const std::string real = temp.folder("real");
  std::filesystem::create_directory_symlink("real", temp.at("link"));
  const auto expectReached = [&](const Descent& descent) {
    const OpenedDirectory opened = reader->open(real + descent.path);
    ASSERT_TRUE(opened.directory) << descent.path.size() << " bytes: " << opened.error.message();
    EXPECT_EQ(opened.directory->facts().fileID, descent.inode());
    // A folder that was replaced by a link must not lead out of the tree, however long the path below it.
    EXPECT_EQ(reader->open(temp.at("link") + descent.path).error, std::errc::too_many_symbolic_link_levels);
  };
  // Folders at every length around the system's limit, and slashes at every place around it.
  for (const std::size_t pad : {0U, 1U}) {
    Descent descent(real);
    while (real.size() + descent.path.size() < PATH_MAX - 300) descent.into(std::string(200 + pad, 'n'));
    descent.into(std::string(PATH_MAX - 20 - pad - real.size() - descent.path.size() - 1, 'n'));
    while (real.size() + descent.path.size() < PATH_MAX + 20) {
      descent.into("x");
      expectReached(descent);
    }
    while (descent.path.size() < 2 * PATH_MAX + 100) {
      descent.into("y" + std::string(30, 'n'));
      expectReached(descent);
    }
    const std::string path = real + descent.path;
    EXPECT_EQ(reader->open(path + "/missing").error, std::errc::no_such_file_or_directory);
    EXPECT_EQ(reader->open(path + "/" + std::string(256, 'n')).error, std::errc::filename_too_long);
  }
}

TEST_F(Directories, AreReachedInASandboxThatRefusesOpenat2) {
  const std::string name = std::string(200, 'n');
  std::string path = temp.path;
  for (Descent descent(temp.path); path.size() < PATH_MAX + 300; path = temp.path + descent.path)
    descent.into(name);
  std::filesystem::create_directory_symlink(name, temp.at("link"));
  std::filesystem::permissions(temp.path, std::filesystem::perms(0755));
  for (const int error : {EPERM, ENOSYS}) {
    inChild([&] {
      refuseCall(SYS_openat2, error);
      EXPECT_TRUE(reader->open(temp.at(name)).directory);
      EXPECT_TRUE(reader->open(path).directory);
      EXPECT_EQ(reader->open(temp.at("link")).error, std::errc::not_a_directory);
      // Without the right to leave the access time alone.
      asOrdinaryUser([&] { EXPECT_TRUE(reader->open(temp.path).directory); });
    });
  }
}

}  // namespace
}  // namespace quon::test
