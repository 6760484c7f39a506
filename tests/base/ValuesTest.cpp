#include <cstdint>
#include <gtest/gtest.h>
#include <limits>

#include "base/Checked.h"
#include "base/HumanBytes.h"
#include "base/Log.h"

namespace quon {
namespace {

constexpr std::uint64_t largest = std::numeric_limits<std::uint64_t>::max();

TEST(HumanBytes, DividesWhileALargerUnitRemains) {
  EXPECT_EQ(humanBytes(0), "0 B");
  EXPECT_EQ(humanBytes(1023), "1023 B");
  EXPECT_EQ(humanBytes(1024), "1.0 KB");
  EXPECT_EQ(humanBytes(1536), "1.5 KB");
  EXPECT_EQ(humanBytes((1ULL << 20) - 1), "1024.0 KB");
  EXPECT_EQ(humanBytes(1ULL << 20), "1.0 MB");
  EXPECT_EQ(humanBytes(5ULL << 29), "2.5 GB");
  EXPECT_EQ(humanBytes(1ULL << 50), "1024.0 TB");
  EXPECT_EQ(humanBytes(largest), "16777216.0 TB");
}

TEST(HumanBytes, GroupsDigitsByThree) {
  EXPECT_EQ(grouped(0), "0");
  EXPECT_EQ(grouped(999), "999");
  EXPECT_EQ(grouped(1000), "1,000");
  EXPECT_EQ(grouped(123456), "123,456");
  EXPECT_EQ(grouped(largest), "18,446,744,073,709,551,615");
}

TEST(CheckedDeathTest, StopsInsteadOfWrapping) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EQ(checkedAdd(largest - 1, std::uint64_t{1}), largest);
  EXPECT_EQ(saturatingSub(std::uint64_t{3}, std::uint64_t{5}), 0U);
  EXPECT_DEATH((void)checkedAdd(largest, std::uint64_t{1}), "overflows");
  EXPECT_DEATH((void)checkedSub(std::uint64_t{3}, std::uint64_t{5}), "underflows");
  EXPECT_DEATH((void)checkedMul(largest, std::uint64_t{2}), "overflows");
}

TEST(Log, WritesEachLineWholeAndWithoutControlCharacters) {
  StandardErrorLog log;
  testing::internal::CaptureStderr();
  log.line("cannot list /tmp/a\nb\x1b[2J");
  log.line("next");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[quon] cannot list /tmp/a␊b␛[2J\n[quon] next\n");
}

}  // namespace
}  // namespace quon
