// The command bar.
#include <algorithm>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "ModelHome.h"
#include "palette/PaletteCommand.h"

namespace quon::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using testing::SizeIs;

std::vector<std::string> titles(AppModel& model, std::string_view text) {
  std::vector<std::string> all;
  for (const PaletteCommand& command : matchedCommands(paletteCommands(model), text))
    all.push_back(command.title);
  return all;
}

void run(AppModel& model, const std::string& id) {
  model._showPalette.set(true);
  const auto commands = paletteCommands(model);
  const auto found = std::ranges::find(commands, id, &PaletteCommand::id);
  ASSERT_NE(found, commands.end()) << id;
  runPaletteRow(model, *found);
  EXPECT_FALSE(model._showPalette.get());
}

TEST(Palette, OffersWhatCanBeDoneNow) {
  ModelHome home;
  home.top.file("tree/a/x", 1);
  home.scan();
  AppModel& model = *home.model;
  EXPECT_THAT(titles(model, ""), Not(Contains("Clear Filters")));
  home.desktop.fullDiskAccess = false;
  home.scan();
  model._query.set("x");
  model.jump(*model.entryFor(home.root + "/a"));
  model._query.set("x");
  EXPECT_THAT(titles(model, ""), Contains("Enclosing Folder"));
  EXPECT_THAT(titles(model, ""), Contains("Clear Filters"));
  EXPECT_THAT(titles(model, ""), Contains("Grant Full Disk Access"));
  run(model, "fda");
  EXPECT_EQ(home.desktop.settingsOpened, 1);
  run(model, "clear");
  EXPECT_FALSE(model.hasQuery());
  run(model, "up");
  EXPECT_THAT(titles(model, "go up"), Not(Contains("Enclosing Folder")));
}

TEST(Palette, IsFilteredByTheWordsOfTitlesAndKeywords) {
  ModelHome home;
  home.scan();
  AppModel& model = *home.model;
  EXPECT_THAT(titles(model, " TREE "), ElementsAre("Show as Treemap", "Scan " + home.root));
  run(model, "mapmode");
  EXPECT_EQ(model._mapMode.get(), MapMode::treemap);
  EXPECT_THAT(titles(model, "tree map"), ElementsAre("Show as Sunburst"));
  EXPECT_THAT(titles(model, "disk"), ElementsAre("Show Physical Sizes"));
  EXPECT_THAT(titles(model, "nothing like it"), SizeIs(0));
  run(model, "lens-Dupes");
  EXPECT_EQ(model._lens.get(), Lens::dupes);
  run(model, "metric");
  EXPECT_EQ(model._metric.get(), Metric::physical);
  run(model, "inspector");
  EXPECT_FALSE(model._showInspector.get());
}

TEST(Palette, ListsTheLargestFilesThatMatch) {
  ModelHome home;
  for (std::uint64_t file = 0; file < 300; ++file) {
    home.top.file("tree/film " + std::to_string(file), 1048576 + file);
  }
  home.scan();
  AppModel& model = *home.model;
  model.schedulePaletteSearch("  film ");
  EXPECT_EQ(model.lastPaletteText, "film");
  EXPECT_TRUE(model._paletteSearching.get());
  home.queue(QueueName::palette).advance(std::chrono::milliseconds(80));
  home.main.runPosted();
  EXPECT_FALSE(model._paletteSearching.get());
  ASSERT_THAT(model._paletteHits.get(), SizeIs(250));
  EXPECT_EQ(model._paletteHits.get().front().name, "film 299");
  EXPECT_EQ(model._paletteHits.get().back().name, "film 50");
  EXPECT_THAT(paletteRows(model, "film"), SizeIs(250));
  const PaletteRow chosen = paletteRows(model, "film").front();
  model._scope.set(nullptr);
  runPaletteRow(model, chosen);
  EXPECT_EQ(model._selection.get(), "f:" + home.root + "/film 299");
  model.schedulePaletteSearch("film 2");
  model.schedulePaletteSearch("");
  home.queue(QueueName::palette).advance(std::chrono::milliseconds(80));
  home.main.runPosted();
  EXPECT_THAT(model._paletteHits.get(), SizeIs(0));
}

}  // namespace
}  // namespace quon::test
