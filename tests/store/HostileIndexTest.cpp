// Indexes that no scan has written: damaged, unfinished, or forged. Each is refused with a reason; none stops
// the program, keeps it busy or loads as a wrong tree.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <random>
#include <sys/resource.h>
#include <sys/stat.h>
#include <vector>

#include "base/Text.h"
#include "store/ScanStore.h"
#include "store/StoreError.h"
#include "support/ChildProcess.h"
#include "support/IndexComparison.h"
#include "support/RawIndex.h"
#include "support/SampleTree.h"
#include "support/Seed.h"
#include "support/TempFolder.h"

namespace quon::test {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

const RootPath kRoot("/sample");

/// An index of root 1 > a 2 > b 3 > c 4, and d 5 beside a; a kept file and a small one in each of a and d.
std::string saveSmall(const std::string& folder) {
  std::string url = SampleTree(kRoot.path()).save(folder);
  RawIndex(url).exec(
      "INSERT INTO dirs VALUES (2, 1, 'a', 0, 0), (3, 2, 'b', 0, 0), (4, 3, 'c', 0, 0), (5, 1, 'd', 0, 0);"
      "INSERT INTO files VALUES (2, 'small', 100, 512, 5), (2, 'kept', 5000, 8192, 6),"
      " (5, 'small', 100, 512, 5), (5, 'kept', 5000, 8192, 6); VACUUM");
  RawIndex(url).dropTotals();
  return url;
}

std::string refusal(const std::string& url, const RootPath& root = kRoot) {
  try {
    (void)ScanStore::load(url, root, 1000);
    return "";
  } catch (const StoreError& error) {
    return error.what();
  }
}

class HostileIndex : public testing::Test {
 protected:
  /// The sound index once more, changed by a script.
  void damage(const std::string& script) {
    writeBytes(url, sound);
    RawIndex(url).exec(script);
  }

  const TempFolder top;
  const std::string url = saveSmall(top.path);
  const std::string sound = readBytes(url);  ///< its bytes
};

std::string incomplete(const std::string& url) {
  return "index at " + displayText(url) + " is incomplete or from another format";
}

TEST_F(HostileIndex, ThatIsNoDatabaseIsRefused) {
  EXPECT_EQ(refusal(top.at("absent")), "no index at " + top.at("absent"));
  EXPECT_EQ(refusal(top.file("empty", 0)), incomplete(top.at("empty")));
  EXPECT_NE(refusal(top.folder("folder")), "");
  writeBytes(top.at("text"), std::string(5000, 'x'));
  EXPECT_EQ(refusal(top.at("text")), "sqlite: file is not a database");
  EXPECT_THROW((void)ScanStore::meta(top.at("text")), StoreError);
  EXPECT_THROW((void)ScanStore::repeatedNames(top.at("text"), 1, 0), StoreError);
  EXPECT_THROW((void)ScanStore::paths("x", top.at("text"), kRoot, 1), StoreError);
  EXPECT_THROW((void)ScanStore::dupeCandidates(top.at("text"), kRoot, 0), StoreError);
  EXPECT_THROW(ScanStore::remove("/sample/a", true, top.at("text"), kRoot), StoreError);
  ASSERT_EQ(::chmod(top.path.c_str(), 0755), 0);
  ASSERT_EQ(::chmod(url.c_str(), 0), 0);
  asOrdinaryUser([&] { EXPECT_THAT(refusal(url), HasSubstr("cannot open " + url)); });
}

TEST_F(HostileIndex, OfAnotherRootNamesBoth) {
  EXPECT_EQ(refusal(url, RootPath("/other")), "index is for /sample, not /other");
  RawIndex(url).exec("UPDATE meta SET value = " + sqlText("/a\xff\n") + " WHERE key = 'root'");
  EXPECT_EQ(refusal(url), "index is for /a\uFFFD\u240A, not /sample");
}

/// Scripts by what the refusal of the index they leave matches; "" for the line about an incomplete index or
/// one from another format.
const std::vector<std::pair<const char*, std::vector<const char*>>> kDamages{
    // Metadata.
    {"",
     {"DELETE FROM meta WHERE key = 'complete'", "UPDATE meta SET value = '2' WHERE key = 'format'",
      "DELETE FROM meta WHERE key = 'topFiles'", "UPDATE meta SET value = '4294967296' WHERE key = 'rootDev'",
      "UPDATE meta SET value = '9223372036854775808' WHERE key = 'elapsedMs'"}},
    // Another schema.
    {"",
     {"CREATE TABLE extra (x)", "CREATE VIEW extra AS SELECT 1", "DROP TABLE files",
      "ALTER TABLE files ADD COLUMN extra",
      "CREATE TRIGGER t AFTER DELETE ON files BEGIN DELETE FROM dirs; END",
      "DROP TABLE meta; CREATE VIEW meta AS WITH RECURSIVE r(key, value) AS"
      " (SELECT 'a', 'b' UNION ALL SELECT key, value FROM r) SELECT key, value FROM r",
      "PRAGMA writable_schema = ON; UPDATE sqlite_schema SET sql = 'CREATE TABLE dirs"
      " (id INTEGER PRIMARY KEY, parent, name, mtime, error AS (1))' WHERE name = 'dirs'"}},
    // The tree.
    {"index has no root dir", {"DELETE FROM dirs"}},
    {"",
     {"DELETE FROM dirs WHERE id = 1", "UPDATE dirs SET parent = 4 WHERE id = 2",
      "UPDATE dirs SET parent = 1 WHERE id = 1", "UPDATE dirs SET parent = 5 WHERE id = 3",
      "UPDATE dirs SET parent = -9223372036854775808 WHERE id = 5",
      "UPDATE dirs SET parent = NULL WHERE id = 5", "UPDATE dirs SET id = 9223372036854775807 WHERE id = 1",
      "UPDATE dirs SET name = 'a' WHERE id = 5", "UPDATE files SET dir = 999",
      "UPDATE files SET dir = -1 WHERE name = 'small'"}},
    // Names.
    {"",
     {"UPDATE dirs SET name = '..' WHERE id = 5", "UPDATE dirs SET name = '' WHERE id = 5",
      "UPDATE dirs SET name = 'x/y' WHERE id = 5",
      "UPDATE dirs SET name = CAST(x'780079' AS TEXT) WHERE id = 5",
      "UPDATE files SET name = '..' WHERE name = 'kept'",
      "UPDATE files SET name = '/etc' WHERE name = 'kept'",
      "UPDATE files SET name = CAST(x'6b00' AS TEXT) WHERE name = 'kept'"}},
    {"where text belongs",
     {"UPDATE meta SET value = x'31' WHERE key = 'format'", "UPDATE dirs SET name = x'78' WHERE id = 5",
      "UPDATE files SET name = x'6b' WHERE name = 'kept'"}},
    // Numbers.
    {"where a number belongs",
     {"UPDATE dirs SET parent = 1.5 WHERE id = 5", "UPDATE dirs SET mtime = 1.5 WHERE id = 5",
      "UPDATE dirs SET error = x'00' WHERE id = 5", "UPDATE files SET dir = 2.5 WHERE name = 'kept'",
      "UPDATE files SET mtime = 1e300 WHERE name = 'kept'"}},
    {"where a (size or count|number) belongs",
     {"UPDATE files SET logical = -1 WHERE name = 'small'",
      "UPDATE files SET logical = 1.5 WHERE name = 'small'",
      "UPDATE files SET physical = -9223372036854775808 WHERE name = 'small'"}},
    {"where a number belongs", {"UPDATE files SET logical = 'much' WHERE name = 'small'"}},
    // Totals.
    {"",
     {"UPDATE files SET logical = 9223372036854775807", "UPDATE files SET physical = 9223372036854775807"}},
    {"sqlite: integer overflow", {"UPDATE files SET dir = 2, logical = 9223372036854775807"}}};

TEST_F(HostileIndex, IsRefusedWhateverIsWrongInIt) {
  for (const auto& [expected, scripts] : kDamages) {
    for (const char* script : scripts) {
      damage(script);
      const std::string reason = refusal(url);
      if (*expected == '\0') {
        EXPECT_EQ(reason, incomplete(url)) << script;
      } else {
        EXPECT_THAT(reason, ContainsRegex(expected)) << script;
      }
    }
  }
}

TEST_F(HostileIndex, MetadataThatCannotBeParsedIsRefused) {
  const auto expectRefused = [&](const std::string& key, const std::string& value) {
    damage("UPDATE meta SET value = " + sqlText(value) + " WHERE key = '" + key + "'");
    EXPECT_EQ(refusal(url), incomplete(url)) << key << " = " << value.substr(0, 80);
  };
  for (const char* key : {"errorCount", "hardlinksDeduped", "elapsedMs", "lastEventId", "rootDev"}) {
    for (const char* value : {"", "x", "-1", " 1", "1 ", "1.5", "0x1", "18446744073709551616"})
      expectRefused(key, value);
  }
  for (const char* value : {"", "x", "nan", "inf", "1e300", "-1e19", "9.3e18", "1.5 ", "1,5"})
    expectRefused("scannedAt", value);
  for (const char* key : {"errorSamples", "skippedProtected"}) {
    for (const char* value : {"", "[", "{}", "null", "[1]", "[null]", R"([["/x"]])", R"(["\u0000zz"])",
                              R"(["\u0000"])", "[\"\xff\"]", R"(["/x"] x)"}) {
      expectRefused(key, value);
    }
  }
  const std::string deep(1000000, '[');
  for (const std::string& value :
       {std::string("{}"), std::string("[1]"), std::string("[{}]"), deep,
        deep + std::string(deep.size(), ']'),
        R"([{"p":"/x","l":)" + deep + std::string(deep.size(), ']') + R"(,"y":1,"m":1}])",
        std::string(R"([{"p":1,"l":1,"y":1,"m":1}])"), std::string(R"([{"p":"/x","l":-1,"y":1,"m":1}])"),
        std::string(R"([{"p":"/x","l":1.5,"y":1,"m":1}])"),
        std::string(R"([{"p":"/x","l":1,"y":"1","m":1}])"),
        std::string(R"([{"p":"/x","l":18446744073709551616,"y":1,"m":1}])"),
        std::string(R"([{"p":"/x","l":1,"y":1}])")}) {
    expectRefused("topFiles", value);
  }
}

TEST_F(HostileIndex, NamesThatLeadElsewhereDoNotComeOutOfQueries) {
  for (const char* script :
       {"UPDATE dirs SET name = '..' WHERE id = 2", "UPDATE dirs SET name = 'x/../..' WHERE id = 2",
        "UPDATE dirs SET parent = 4 WHERE id = 2", "UPDATE dirs SET parent = 2 WHERE id = 2",
        "UPDATE files SET dir = 999", "UPDATE dirs SET name = x'78' WHERE id = 2"}) {
    damage(script);
    EXPECT_THROW((void)ScanStore::dupeCandidates(url, kRoot, 0), StoreError) << script;
    EXPECT_THROW((void)ScanStore::paths("kept", url, kRoot, 9), StoreError) << script;
  }
  for (const char* script : {"UPDATE files SET name = '../../etc/passwd'", "UPDATE files SET name = ''",
                             "UPDATE files SET name = CAST(x'7800' AS TEXT)"}) {
    damage(script);
    EXPECT_THROW((void)ScanStore::dupeCandidates(url, kRoot, 0), StoreError) << script;
  }
}

TEST_F(HostileIndex, ThatGoesInCirclesLetsRemovalEnd) {
  RawIndex(url).exec("UPDATE dirs SET parent = 4 WHERE id = 3; UPDATE dirs SET parent = 1 WHERE id = 4");
  ScanStore::remove("/sample/c", true, url, kRoot);
  EXPECT_EQ(RawIndex(url).value("SELECT group_concat(id) FROM dirs"), "1,2,5");
}

TEST_F(HostileIndex, CutOffAnywhereIsRefusedOrWhole) {
  const Loaded whole = ScanStore::load(url, kRoot, 1000);
  std::mt19937_64 random(randomSeed());
  std::vector<std::size_t> lengths{1, 15, 16, 99, 100, 101, 511, 512, 1023, sound.size() - 1};
  for (std::size_t page = 4096; page < sound.size(); page += 4096)
    lengths.insert(lengths.end(), {page - 1, page, page + 1});
  for (int at = 0; at < 40; ++at) lengths.push_back(random() % sound.size());
  std::size_t loads = 0;
  for (const std::size_t length : lengths) {
    writeBytes(url, sound.substr(0, length));
    try {
      // What is missing may be an index that loading does not read.
      const Loaded loaded = ScanStore::load(url, kRoot, 1000);
      EXPECT_EQ(differences(*loaded.result.root, *whole.result.root), "") << length << " of " << sound.size();
      ++loads;
    } catch (const StoreError&) {
    }
  }
  EXPECT_LT(loads, lengths.size() / 2);
}

TEST_F(HostileIndex, ASoundOneLoadsWithoutAThreadToSpare) {
  ASSERT_EQ(::chmod(top.path.c_str(), 0755), 0);
  ASSERT_EQ(::chmod(url.c_str(), 0644), 0);
  asOrdinaryUser([&] {
    const rlimit none{0, 0};
    ASSERT_EQ(::setrlimit(RLIMIT_NPROC, &none), 0);
    EXPECT_EQ(refusal(url), "");
  });
}

/// Every size and time in it is its own, so that no row can take the place of another.
std::string saveWhole(const std::string& folder) {
  SampleTree tree(kRoot.path());
  for (int number = 0; number < 60; ++number) {
    DirNode& child = tree.folder("folder" + std::to_string(number));
    for (int file = 0; file < 8; ++file) {
      const std::uint64_t size =
          100 * static_cast<std::uint64_t>(number) + static_cast<std::uint64_t>(file) + 1;
      tree.file(child, {"file" + std::to_string(file), size * 17, size * 512, number + file});
    }
  }
  return tree.save(folder);
}

TEST_F(HostileIndex, WithBytesChangedIsRefusedOrTheSameTree) {
  std::mt19937_64 random(randomSeed());
  const std::string whole = saveWhole(top.folder("whole"));
  const std::string bytes = readBytes(whole);
  const Loaded before = ScanStore::load(whole, kRoot, 1000);
  int refusals = 0;
  for (int round = 0; round < 400; ++round) {
    std::string changed = bytes;
    for (std::size_t left = 1 + random() % 3; left > 0; --left) {
      char& byte = changed[random() % changed.size()];
      byte = static_cast<char>(static_cast<unsigned char>(byte) ^ 1U << random() % 8);
    }
    writeBytes(whole, changed);
    try {
      EXPECT_EQ(differences(*ScanStore::load(whole, kRoot, 1000).result.root, *before.result.root), "");
    } catch (const StoreError&) {
      ++refusals;
    }
  }
  EXPECT_GT(refusals, 100) << "the changes do no damage";
}

TEST_F(HostileIndex, WithBytesChangedAndNoTotalsIsRefusedOrConsistent) {
  std::mt19937_64 random(randomSeed());
  int loads = 0;
  int refusals = 0;
  for (int round = 0; round < 400; ++round) {
    std::string changed = sound;
    for (std::size_t left = 1 + random() % 6; left > 0; --left) {
      // At their beginnings and ends pages are described.
      const std::size_t page = random() % (sound.size() / 4096) * 4096;
      const std::size_t within = random() % 2 == 0 ? random() % 160 : 4095 - random() % 300;
      changed[page + within] =
          random() % 2 == 0 ? static_cast<char>(random()) : static_cast<char>(random() % 4);
    }
    writeBytes(url, changed);
    try {
      EXPECT_EQ(inconsistency(ScanStore::load(url, kRoot, 1000), kRoot), "");
      ++loads;
    } catch (const StoreError&) {
      ++refusals;
    }
  }
  RecordProperty("loads", loads);
  EXPECT_GT(loads, 20) << "the changes leave nothing to check";
  EXPECT_GT(refusals, 100) << "the changes do no damage";
}

}  // namespace
}  // namespace quon::test
