#include <filesystem>
#include <gtest/gtest.h>
#include <string>

#include "ModelHome.h"

namespace quon::test {
namespace {

namespace fs = std::filesystem;

TEST(SelfFootprint, IsWhatTheOwnFilesTakeAndIsNotAskedAllTheTime) {
  ModelHome home;
  home.scan();
  home.settle();
  const auto measured = [&](bool force) {
    home.model->refreshSelfFootprint(force);
    home.settle();
    return home.model->_selfFootprint.get();
  };
  std::uint64_t expected = 0;
  for (const char* folder : {"data", "config", "state"}) {
    if (!fs::exists(home.top.at(folder))) continue;
    for (const auto& entry : fs::recursive_directory_iterator(home.top.at(folder))) {
      std::error_code none;
      if (entry.is_regular_file()) expected += home.services.files.facts(entry.path().string(), none)->physical;
    }
  }
  ASSERT_GT(expected, 0U);
  EXPECT_EQ(measured(false), expected);
  home.top.file("data/more", 10'000);
  EXPECT_EQ(measured(false), expected) << "within the same minute";
  EXPECT_GT(measured(true), expected);
  home.now += 61;
  fs::remove(home.top.at("data/more"));
  EXPECT_EQ(measured(false), expected);
}

TEST(TransitionProbe, RunsOnceAfterTheScreenWasUnlockedIfItWasAskedFor) {
  for (const bool isRequested : {false, true}) {
    ModelHome home;
    home.defaults.flags["gapprobe"] = isRequested;
    home.restart();
    int cycles = 0;
    home.model->onGapProbe = [&](int count) { cycles += count; };
    home.settle();
    home.scan();
    home.settle();
    ASSERT_EQ(home.desktop.unlocked != nullptr, isRequested);
    if (!isRequested) continue;
    EXPECT_EQ(cycles, 0);
    home.desktop.unlocked();
    home.desktop.unlocked();
    EXPECT_EQ(cycles, 3);
    EXPECT_EQ(home.log.lines.back(), "transition probe: 3 drill/up cycles…");
    home.model.reset();
    home.desktop.unlocked();
  }
}

}  // namespace
}  // namespace quon::test
