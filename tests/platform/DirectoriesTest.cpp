#include <climits>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <sys/stat.h>
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
  std::map<std::string, DirEntry> entries;  // whose own names no longer hold
  std::size_t delivered = 0;
  std::size_t largestBatch = 0;
  bool refused = false;
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
    all.refused |= batch.attributesRefused;
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

TEST_F(Directories, TellsWhatLstatTellsOfEveryEntry) {
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
  EXPECT_FALSE(listed.refused);
  EXPECT_EQ(listed.delivered, names.size());
  EXPECT_LE(listed.largestBatch, 500U);
  std::error_code error;
  const std::uint32_t device = LinuxFiles().facts(temp.path, error).value().device;
  for (const std::string& name : names) {
    ASSERT_TRUE(listed.entries.contains(name)) << testing::PrintToString(name);
    const DirEntry& entry = listed.entries.at(name);
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
    EXPECT_EQ(entry.device, device);
  }
}

TEST_F(Directories, OpensFoldersOnly) {
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

TEST_F(Directories, IsNotLedAwayByALinkAnywhereInAPath) {
  // A folder that was replaced by a link must not lead out of the tree, however long the path below it.
  const std::string below = "/" + std::string(200, 'a');
  std::string real = temp.folder("real");
  std::filesystem::create_directory_symlink("real", temp.at("link"));
  std::string linked = temp.at("link");
  Descriptor at(::open(real.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  while (real.size() < 2 * PATH_MAX) {
    ASSERT_EQ(::mkdirat(at.get(), below.c_str() + 1, S_IRWXU), 0);
    at = Descriptor(::openat(at.get(), below.c_str() + 1, O_PATH | O_DIRECTORY | O_CLOEXEC));
    real += below;
    linked += below;
    EXPECT_TRUE(reader->open(real).directory) << real.size();
    EXPECT_EQ(reader->open(linked).error, std::errc::too_many_symbolic_link_levels) << linked.size();
  }
}

TEST_F(Directories, TellsOfAnOpenFolderAndOfIdentitiesAlone) {
  temp.file("file", 5000);
  temp.folder("folder");
  std::filesystem::create_symlink("file", temp.at("link"));
  struct stat truth {};
  ASSERT_EQ(::stat(temp.path.c_str(), &truth), 0);
  const OpenedDirectory opened = reader->open(temp.path);
  const FolderFacts facts = opened.directory->facts();
  std::error_code error;
  EXPECT_EQ(facts.device, LinuxFiles().facts(temp.path, error).value().device);
  EXPECT_EQ(facts.fileID, truth.st_ino);
  EXPECT_EQ(facts.mtime, truth.st_mtim.tv_sec);

  const Listed full = listAll(*reader, opened.directory);
  const Listed quick = listAll(*reader, reader->open(temp.path).directory, Detail::identity);
  ASSERT_EQ(quick.entries.size(), 3U);
  for (const auto& [name, entry] : quick.entries) {
    EXPECT_EQ(entry.type, full.entries.at(name).type) << name;
    EXPECT_EQ(entry.fileID, full.entries.at(name).fileID) << name;
  }
}

TEST_F(Directories, SharesOneReaderAmongListingsAndAbandonsTheOneBefore) {
  for (int number = 0; number < 1000; ++number) temp.file("many/" + std::to_string(number));
  temp.file("few/only");
  const OpenedDirectory many = reader->open(temp.at("many"));
  reader->start(many.directory);
  EXPECT_EQ(reader->next().status, ReadStatus::more);
  EXPECT_EQ(list(temp.at("few")).delivered, 1U);
  EXPECT_EQ(list(temp.at("many")).delivered, 1000U);
}

TEST_F(Directories, AFolderRemovedWhileOpenComesToItsEnd) {
  temp.file("gone/file");
  const OpenedDirectory opened = reader->open(temp.at("gone"));
  removeTree(temp.at("gone"));
  const Listed listed = listAll(*reader, opened.directory);
  EXPECT_EQ(listed.end, ReadStatus::end);
  EXPECT_EQ(listed.delivered, 0U);
}

TEST_F(Directories, LeavesAccessTimesAlone) {
  temp.file("folder/file");
  const timespec longAgo{.tv_sec = 946684800, .tv_nsec = 0};
  const std::array<timespec, 2> times{longAgo, {.tv_sec = 0, .tv_nsec = UTIME_OMIT}};
  ASSERT_EQ(::utimensat(AT_FDCWD, temp.at("folder").c_str(), times.data(), 0), 0);
  EXPECT_EQ(list(temp.at("folder")).delivered, 1U);
  struct stat after {};
  ASSERT_EQ(::stat(temp.at("folder").c_str(), &after), 0);
  EXPECT_EQ(after.st_atim.tv_sec, longAgo.tv_sec);
}

TEST_F(Directories, TellsWhenAttributesAreRefused) {
  temp.file("half open/file", 5000);
  temp.folder("half open/below");
  ASSERT_EQ(::chmod(temp.at("half open").c_str(), S_IRUSR | S_IROTH), 0);
  ASSERT_EQ(::chmod(temp.path.c_str(), S_IRWXU | S_IROTH | S_IXOTH), 0);
  asOrdinaryUser([&] {
    const Listed listed = list(temp.at("half open"));
    EXPECT_EQ(listed.end, ReadStatus::end);
    EXPECT_TRUE(listed.refused);
    ASSERT_EQ(listed.delivered, 2U);
    EXPECT_EQ(listed.entries.at("file").type, EntryType::regular);
    EXPECT_EQ(listed.entries.at("file").logical, 0U);
    EXPECT_EQ(listed.entries.at("below").type, EntryType::directory);
    EXPECT_EQ(reader->open(temp.at("half open/below")).error, std::errc::permission_denied);
  });
}

TEST_F(Directories, ReachesPathsOfAnyLength) {
  Descriptor at;
  std::string path;
  const auto descend = [&](const std::string& name) {
    ASSERT_EQ(::mkdirat(at.get(), name.c_str(), S_IRWXU), 0);
    at = Descriptor(::openat(at.get(), name.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    path += "/" + name;
  };
  const auto expectReached = [&](const std::string& asked) {
    const OpenedDirectory opened = reader->open(asked);
    ASSERT_TRUE(opened.directory) << asked.size() << " bytes: " << opened.error.message();
    struct stat truth {};
    ASSERT_EQ(::fstat(at.get(), &truth), 0);
    EXPECT_EQ(opened.directory->facts().fileID, truth.st_ino);
  };
  // Folders at every length around the system's limit, and slashes at every place around it.
  for (const std::size_t pad : {0U, 1U}) {
    at = Descriptor(::open(temp.path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
    path = temp.path;
    while (path.size() < PATH_MAX - 300) descend(std::string(200 + pad, 'n'));
    descend(std::string(PATH_MAX - 20 - pad - path.size() - 1, 'n'));
    while (path.size() < PATH_MAX + 20) {
      descend("x");
      expectReached(path);
    }
  }
  while (path.size() < 2 * PATH_MAX + 100) {
    descend("y" + std::string(30, 'n'));
    expectReached(path);
  }
  EXPECT_EQ(reader->open(path + "/missing").error, std::errc::no_such_file_or_directory);
  EXPECT_EQ(reader->open(path + "/" + std::string(256, 'n')).error, std::errc::filename_too_long);

  // Doubled slashes mean what one means, wherever the path is taken apart.
  for (std::size_t lead = 1; lead < 40; ++lead) {
    std::string doubled(lead, '/');
    for (const char byte : path.substr(1)) doubled += byte == '/' ? "//" : std::string(1, byte);
    expectReached(doubled);
  }
}

}  // namespace
}  // namespace quon::test
