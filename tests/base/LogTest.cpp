#include <gtest/gtest.h>

#include "base/Log.h"

namespace quon {
namespace {

TEST(Log, WritesEachLineWholeAndOnOneLine) {
  StandardErrorLog log;
  testing::internal::CaptureStderr();
  log.line("cannot list /tmp/a\nb\x1b[2J");
  log.line("next");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "[quon] cannot list /tmp/a␊b␛[2J\n[quon] next\n");
}

}  // namespace
}  // namespace quon
