// Makes an index of the input and loads it. The first byte chooses how:
//
// 0  the rest is the file;
// 1  the rest changes bytes of a sound index: two bytes of offset, one of value, over and over;
// 2  the rest edits rows of a sound index through SQL, four bytes an edit; pages and secondary indexes stay
//    sound then, and the rows themselves are checked.
//
// Nothing but StoreError may be thrown, and what loads must be a consistent tree.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <optional>
#include <span>
#include <sqlite3.h>
#include <string>

#include "rows/FolderRows.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"
#include "support/RawIndex.h"
#include "support/SampleTree.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

const RootPath kRoot("/sample");
constexpr std::uint64_t kLeastKept = 1000;

using Bytes = std::span<const std::uint8_t>;

void require(bool isTrue, const std::string& what) {
  if (isTrue) return;
  std::fprintf(stderr, "%s\n", what.c_str());
  std::abort();
}

/// A small index that is the same in every run, in pages as small as they come.
std::string soundIndex() {
  const TempFolder folder;
  SampleTree tree(kRoot.path());
  DirNode& a = tree.folder("a", nullptr, 3);
  DirNode& b = tree.folder("b", &a, -3);
  DirNode& c = tree.folder("c");
  std::uint64_t size = 1;
  for (DirNode* parent : {&tree.root(), &a, &b, &c, &b, &b, &c}) {
    tree.file(*parent,
              {"f" + std::to_string(size % 5), size * 300, size * 512, static_cast<std::int64_t>(size)});
    ++size;
  }
  WalkResult figures;
  figures.topFiles = {{"/sample/c/f2", 2100, 3584, 7}};
  const std::string url = tree.save(folder.path, figures);
  RawIndex(url).exec(
      "UPDATE meta SET value = '1.5' WHERE key = 'scannedAt'; INSERT INTO links VALUES (9, 2, 'f2', 1);"
      "PRAGMA page_size = 512; VACUUM");
  return readBytes(url);
}

std::string withBytesChanged(std::string index, Bytes changes) {
  for (; changes.size() >= 3; changes = changes.subspan(3)) {
    const std::size_t offset = static_cast<std::size_t>(changes[0]) << 8U | changes[1];
    index[offset % index.size()] = static_cast<char>(changes[2]);
  }
  return index;
}

const std::array kValues{"0",
                         "1",
                         "2",
                         "3",
                         "4",
                         "5",
                         "-1",
                         "999",
                         "1000",
                         "300",
                         "NULL",
                         "'a'",
                         "'..'",
                         "'x/y'",
                         "''",
                         "'f2'",
                         "1.5",
                         "1e300",
                         "x'00'",
                         "x''",
                         "'12'",
                         "'[]'",
                         "'[\"/x\"]'",
                         "'18446744073709551615'",
                         "'1e9'",
                         "'nan'",
                         "9223372036854775807",
                         "-9223372036854775808",
                         "CAST(x'6100' AS TEXT)",
                         "CAST(x'ff' AS TEXT)",
                         "'{}'",
                         "'[{\"p\":\"/x\",\"l\":1,\"y\":1,\"m\":1}]'"};
const std::array kColumns{"dirs.id",    "dirs.parent", "dirs.name",     "dirs.mtime",     "dirs.error",
                          "files.dir",  "files.name",  "files.logical", "files.physical", "files.mtime",
                          "meta.value", "meta.key",    "links.dir",     "links.counted"};

/// The statement that four bytes stand for.
std::string editOf(Bytes four) {
  const std::string column = kColumns[four[1] % kColumns.size()];
  const std::string table = column.substr(0, column.find('.'));
  const std::string row = std::to_string(four[2] % 14 + 1);
  const std::string value = kValues[four[3] % kValues.size()];
  const std::string rowid = table == "links" ? "fileid" : "rowid";
  switch (four[0] % 8) {
    case 0:
      return "DELETE FROM " + table + " WHERE " + rowid + " = " + row;
    case 1:
      return "INSERT INTO dirs VALUES (" + value + ", " + row + ", 'n" + row + "', 0, 0)";
    case 2:
      return "INSERT INTO files VALUES (" + row + ", 'x', " + value + ", 1, 1)";
    case 3:
      return "UPDATE " + table + " SET " + column.substr(column.find('.') + 1) + " = " + value;
    default:
      return "UPDATE " + table + " SET " + column.substr(column.find('.') + 1) + " = " + value + " WHERE " +
             rowid + " = " + row;
  }
}

std::string withRowsEdited(const std::string& index, Bytes edits) {
  sqlite3* opened = nullptr;
  require(sqlite3_open(":memory:", &opened) == SQLITE_OK, "cannot open an index in memory");
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> connection(opened, &sqlite3_close);
  auto* image = static_cast<unsigned char*>(sqlite3_malloc64(index.size()));
  index.copy(reinterpret_cast<char*>(image), index.size());
  const auto size = static_cast<sqlite3_int64>(index.size());
  require(sqlite3_deserialize(opened, "main", image, size, size,
                              SQLITE_DESERIALIZE_FREEONCLOSE | SQLITE_DESERIALIZE_RESIZEABLE) == SQLITE_OK,
          "cannot open a copy of the sound index");
  for (; edits.size() >= 4; edits = edits.subspan(4)) {
    // An edit that a constraint forbids is skipped.
    (void)sqlite3_exec(opened, editOf(edits.first(4)).c_str(), nullptr, nullptr, nullptr);
  }
  sqlite3_int64 length = 0;
  const std::unique_ptr<unsigned char, decltype(&sqlite3_free)> edited(
      sqlite3_serialize(opened, "main", &length, 0), &sqlite3_free);
  return {reinterpret_cast<const char*>(edited.get()), static_cast<std::size_t>(length)};
}

/// What the rows sum up to, counted without SQL's sums and without the tree.
void requireTotalsOfRows(const DirNode& root, const std::string& url) {
  RawIndex index(url);
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  const auto files = index.rows("SELECT logical, physical FROM files");
  for (const auto& row : files) {
    logical += std::stoull(row[0]);
    physical += std::stoull(row[1]);
  }
  require(root.totalFiles == files.size(), "files are missing or counted twice");
  require(root.totalLogical == logical && root.totalPhysical == physical, "totals are not those of the rows");
  require(std::to_string(root.totalDirs + 1) == index.value("SELECT COUNT(*) FROM dirs"),
          "folders are missing");
}

template <typename Call>
auto orRefused(Call call) -> std::optional<decltype(call())> {
  try {
    return call();
  } catch (const StoreError&) {
    return std::nullopt;
  }
}

void exercise(const std::string& url, bool rowsAreSound) {
  if (const auto loaded = orRefused([&] { return ScanStore::load(url, kRoot, kLeastKept); })) {
    const std::string wrong = inconsistency(*loaded, kRoot);
    require(wrong.empty(), wrong);
    if (rowsAreSound) requireTotalsOfRows(*loaded->result.root, url);
    (void)scopeEntries(loaded->result.root, kRoot.path(), Metric::logical, 1);
    (void)largestFiles(loaded->result.root, kRoot.path(), Metric::physical, 3, [] { return false; });
  }
  (void)orRefused([&] { return ScanStore::meta(url); });
  (void)orRefused([&] { return ScanStore::repeatedNames(url, 10, 0); });
  (void)orRefused([&] { return ScanStore::paths("f2", url, kRoot, 10); });
  for (const DupeFile& file : orRefused([&] {
                                return ScanStore::dupeCandidates(url, kRoot, 0);
                              }).value_or(std::vector<DupeFile>())) {
    require(file.path.starts_with("/sample/") && (file.path + "/").find("/../") == std::string::npos,
            "a candidate lies outside the root");
  }
  for (const bool isDir : {false, true}) {
    (void)orRefused([&] {
      ScanStore::remove(isDir ? "/sample/a" : "/sample/a/f2", isDir, url, kRoot);
      return true;
    });
  }
}

}  // namespace

void loadIndexOf(Bytes input) {
  static const std::string kSound = soundIndex();
  static const TempFolder kFolder;
  const std::string url = kFolder.at("index");
  const auto mode = input[0] % 3;
  const Bytes rest = input.subspan(1);
  if (mode == 0) {
    writeBytes(url, {reinterpret_cast<const char*>(rest.data()), rest.size()});
  } else {
    writeBytes(url, mode == 1 ? withBytesChanged(kSound, rest) : withRowsEdited(kSound, rest));
  }
  exercise(url, mode == 2);
  for (const char* beside : {"-journal", "-wal", "-shm"}) std::filesystem::remove(url + beside);
}

}  // namespace quon::test

// NOLINTNEXTLINE(readability-identifier-naming): libFuzzer calls it by this name
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 0) quon::test::loadIndexOf({data, size});
  return 0;
}
