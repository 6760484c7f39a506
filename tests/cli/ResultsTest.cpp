#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <string>
#include <sys/stat.h>
#include <vector>

#include "QuonProcess.h"
#include "base/ByteJson.h"
#include "support/ReferenceTree.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::SizeIs;

constexpr std::uint64_t kMiB = 1048576;

std::vector<std::string> keysOf(const Json& object) {
  std::vector<std::string> keys;
  for (const auto& [key, value] : object.items()) keys.push_back(key);
  return keys;
}

/// A file or folder itself, as lstat reports it.
TopFile factsOf(const std::string& path) {
  struct stat facts {};
  EXPECT_EQ(::lstat(path.c_str(), &facts), 0) << path;
  return {path, static_cast<std::uint64_t>(facts.st_size), static_cast<std::uint64_t>(facts.st_blocks) * 512,
          facts.st_mtim.tv_sec};
}

/// What lies below a folder, a file of several names counted once.
struct CountedTree {
  std::uint64_t dirs = 0;  ///< without the folder itself
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::uint64_t furtherNames = 0;
  std::vector<TopFile> files;

  static CountedTree of(const std::string& path) {
    CountedTree counted;
    const ReferenceTree tree = ReferenceTree::of(path);
    counted.dirs = tree.folders.size() - 1;
    std::set<std::pair<std::uint64_t, std::uint64_t>> seen;
    for (const auto& [folder, held] : tree.folders) {
      for (const auto& [entry, identity, linked] : held.files) {
        if (linked && !seen.insert(identity).second) {
          ++counted.furtherNames;
          continue;
        }
        counted.logical += entry.logical;
        counted.physical += entry.physical;
        counted.files.push_back({folder + "/" + entry.name, entry.logical, entry.physical, entry.mtime});
      }
    }
    return counted;
  }
};

class Results : public testing::Test {
 protected:
  Results() {
    const TempFolder& folder = quon.folder;
    folder.file("tree/film.bin", 5 * kMiB);  // sparse: large in one metric, nothing in the other
    folder.file("tree/photos/deep/er/two.raw", 2 * kMiB);
    folder.file("tree/caf\xe9 \xff.bin", 3 * kMiB / 2);
    writeFile(folder.at("tree/photos/one.raw"), std::string(3 * kMiB, 'x'));
    for (const char* copy : {"tree/a/same.dat", "tree/b/same.dat"}) {
      writeFile(folder.at(copy), std::string(6 * kMiB - 100, 'y'));
    }
    std::filesystem::create_hard_link(folder.file("tree/photos/small", 1000),
                                      folder.at("tree/photos/small again"));
    std::filesystem::create_symlink("/nowhere/at/all", folder.at("tree/b/pointer"));
    folder.file("tree/line\nbreak/\x1b[31mred", 4000);
    folder.file("tree/dir\xfe/plain", 100);
    folder.folder("tree/empty");
    counted = CountedTree::of(quon.tree);
  }

  /// What lies directly below the tree's root and is worth a row: folders, and files from 1 MiB. With the
  /// kind in place of the path.
  [[nodiscard]] std::map<std::string, TopFile> expectedRows() const {
    std::map<std::string, TopFile> rows;
    for (const auto& item : std::filesystem::directory_iterator(quon.tree)) {
      TopFile& row = rows[encodeBytes(item.path().string())] = factsOf(item.path());
      row.path = item.is_directory() ? "dir" : "file";
      if (!item.is_directory()) continue;
      const CountedTree below = CountedTree::of(item.path());
      row.logical = below.logical;
      row.physical = below.physical;
    }
    std::erase_if(rows,
                  [](const auto& row) { return row.second.path == "file" && row.second.logical < kMiB; });
    return rows;
  }

  void expectTotals(const Json& document) const {
    EXPECT_EQ(document.at("files"), counted.files.size());
    EXPECT_EQ(document.at("dirs"), counted.dirs);
    EXPECT_EQ(document.at("logical"), counted.logical);
    EXPECT_EQ(document.at("physical"), counted.physical);
  }

  Quon quon;
  CountedTree counted;
};

TEST_F(Results, ScanCountsTheTree) {
  const Json scan = quon.document({"scan", quon.tree});
  EXPECT_THAT(keysOf(scan),
              ElementsAre("root", "dirs", "files", "logical", "physical", "errors", "errorSamples",
                          "errorReasons", "hardlinksDeduped", "skippedProtected", "elapsedMs", "index"));
  expectTotals(scan);
  EXPECT_EQ(scan.at("root"), quon.tree);
  EXPECT_EQ(scan.at("hardlinksDeduped"), counted.furtherNames);
  EXPECT_EQ(scan.at("errors"), 0);
  EXPECT_EQ(scan.at("index"), quon.onlyIndex());
  std::filesystem::remove_all(quon.indexFolder());
  const Json unsaved = quon.document({"scan", quon.tree, "--no-index", "--threads", "9"});
  expectTotals(unsaved);
  EXPECT_EQ(unsaved.at("index"), nullptr);
  EXPECT_FALSE(std::filesystem::exists(quon.indexFolder()));
}

TEST_F(Results, RowsCountWhatLiesBelowThem) {
  const Json list = quon.document({"ls", quon.tree});
  EXPECT_THAT(keysOf(list), ElementsAre("path", "metric", "logical", "physical", "files", "dirs", "rows"));
  EXPECT_EQ(list.at("path"), quon.tree);
  expectTotals(list);
  std::map<std::string, TopFile> expected = expectedRows();
  std::uint64_t above = UINT64_MAX;
  for (const Json& row : list.at("rows")) {
    EXPECT_THAT(keysOf(row), ElementsAre("kind", "name", "path", "logical", "physical", "mtime"));
    ASSERT_TRUE(expected.contains(row.at("path"))) << row;
    const TopFile& known = expected.at(row.at("path"));
    EXPECT_EQ((TopFile{row.at("kind"), row.at("logical"), row.at("physical"), row.at("mtime")}), known)
        << row;
    EXPECT_EQ(row.at("path"), quon.tree + "/" + row.at("name").get<std::string>());
    EXPECT_LE(row.at("logical"), above) << "largest first";
    above = row.at("logical");
    expected.erase(row.at("path"));
  }
  EXPECT_THAT(expected, IsEmpty()) << "rows are missing";
}

TEST_F(Results, RowsAreSortedByTheMetricAndCutToTheLimit) {
  const Json list = quon.document({"ls", quon.tree, "--metric", "physical", "--limit", "2"});
  EXPECT_EQ(list.at("metric"), "physical");
  ASSERT_THAT(list.at("rows"), SizeIs(3));
  EXPECT_EQ(list.at("rows")[2].at("kind"), "rest");
}

TEST_F(Results, LargestListsTheLargestFilesAndCountsTheRest) {
  const auto kept = static_cast<std::size_t>(
      std::ranges::count_if(counted.files, [](const TopFile& file) { return file.logical >= kMiB; }));
  const Json three = quon.document({"largest", quon.tree, "--limit", "3"});
  EXPECT_THAT(three.at("rows"), SizeIs(3));
  EXPECT_EQ(three.at("more"), kept - 3);
  EXPECT_THAT(quon.run({"largest", quon.tree, "--limit", "3"}).out,
              testing::EndsWith("\n… and " + std::to_string(kept - 3) + " more\n"));
}

TEST_F(Results, BytesThatAreNoTextAreKeptInJson) {
  const std::string document = quon.run({"ls", quon.tree, "--json"}).out;
  EXPECT_THAT(document, HasSubstr(R"("name":"caf\u0000e9 \u0000ff.bin")"));
  EXPECT_THAT(document, HasSubstr(R"("name":"dir\u0000fe")"));
  const Json below = quon.document({"ls", quon.folder.at("tree/dir\xfe")});
  EXPECT_EQ(below.at("path"), encodeBytes(quon.folder.at("tree/dir\xfe")));
  EXPECT_EQ(below.at("files"), 1);
}

TEST_F(Results, SavedIndexesAreListedWithTheirStateAndCollected) {
  (void)quon.document({"scan", quon.tree});
  quon.folder.folder("gone/with");
  const std::string orphan = quon.document({"scan", quon.folder.at("gone")}).at("index");
  std::filesystem::remove_all(quon.folder.at("gone"));
  std::map<std::string, std::string> found;
  const Json list = quon.document({"indexes"});
  for (const Json& row : list.at("rows")) {
    EXPECT_THAT(keysOf(row), ElementsAre("root", "url", "bytes", "scannedAt", "status", "covered"));
    EXPECT_EQ(row.at("bytes"), std::filesystem::file_size(row.at("url").get<std::string>()));
    found[row.at("root")] = row.at("status");
  }
  EXPECT_EQ(found,
            (std::map<std::string, std::string>{{quon.tree, "live"}, {quon.folder.at("gone"), "orphaned"}}));
  EXPECT_THAT(quon.document({"indexes", "--collect"}).at("rows"), SizeIs(1));
  EXPECT_FALSE(std::filesystem::exists(orphan));
}

TEST_F(Results, TextIsOneLineARowWithoutControlCharacters) {
  const auto textOf = [&](const Arguments& arguments) {
    const Finished done = quon.run(arguments);
    EXPECT_EQ(done.status, 0);
    EXPECT_EQ(done.err, "");
    EXPECT_EQ(done.out.find_first_of("\x1b\r"), std::string::npos);
    return done.out;
  };
  EXPECT_THAT(textOf({"scan", quon.tree}), HasSubstr(fmt::format("{}: {} files, {} folders", quon.tree,
                                                                 counted.files.size(), counted.dirs)));
  const std::string list = textOf({"ls", quon.tree});
  EXPECT_THAT(linesOf(list), SizeIs(expectedRows().size() + 2));  // and a heading with an empty line
  EXPECT_THAT(list, HasSubstr("  line␊break/\n"));
  EXPECT_THAT(list, HasSubstr("  caf\xef\xbf\xbd \xef\xbf\xbd.bin\n"));
  EXPECT_THAT(linesOf(list)[2], testing::MatchesRegex("    6\\.0 MB .*%  .* [ab]/"));
  EXPECT_THAT(textOf({"largest", quon.tree}), HasSubstr("er/two.raw\n"));
  EXPECT_THAT(textOf({"names", quon.tree}), HasSubstr("   12.0 MB       2 ×  same.dat\n"));
  EXPECT_THAT(textOf({"names", quon.tree, "--name", "\x1b[31mred"}), HasSubstr("/␛[31mred\n"));
  EXPECT_THAT(textOf({"indexes"}), HasSubstr("live      " + quon.tree + "\n"));
}

}  // namespace
}  // namespace quon::test
