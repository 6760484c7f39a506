// The search field over the model: its pauses, and which result counts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "ModelHome.h"

namespace quon::test {
namespace {

using testing::ElementsAre;
using testing::SizeIs;

constexpr std::uint64_t kMiB = 1048576;

std::vector<std::string> found(const AppModel& model) {
  std::vector<std::string> names;
  if (!model._searchHits.get()) return {"no result"};
  for (const Entry& row : *model._searchHits.get()) names.push_back(row.name);
  return names;
}

class Searches : public testing::Test {
 protected:
  Searches() {
    home.top.file("tree/Films/summer.mp4", 4 * kMiB);
    home.top.file("tree/Films/winter.mp4", 2 * kMiB);
    home.top.file("tree/notes/summer.txt", 3 * kMiB);
    home.scan();
  }

  ModelHome home;
  AppModel& model = *home.model;
};

TEST_F(Searches, WaitsForAPauseInTyping) {
  model._query.set("sum");
  EXPECT_TRUE(model._searching.get());
  home.queue(QueueName::search).advance(std::chrono::milliseconds(119));
  home.main.runPosted();
  EXPECT_FALSE(model._searchHits.get());
  model._query.set("summer");
  home.queue(QueueName::search).advance(std::chrono::milliseconds(119));
  home.main.runPosted();
  EXPECT_FALSE(model._searchHits.get());
  home.queue(QueueName::search).advance(std::chrono::milliseconds(1));
  home.main.runPosted();
  EXPECT_THAT(found(model), ElementsAre("summer.mp4", "summer.txt"));
  EXPECT_FALSE(model._searching.get());
  EXPECT_THAT(model.entries(), SizeIs(2));
  model.clearQuery();
  EXPECT_FALSE(model._searchHits.get());
  EXPECT_THAT(model.entries(), SizeIs(2)) << "the scope's two folders";
}

TEST_F(Searches, AResultOfTheTreeBeforeIsDropped) {
  model._query.set("winter");
  home.queue(QueueName::search).advance(std::chrono::milliseconds(120));
  home.top.file("tree/more/winter.raw", 9 * kMiB);
  model.scan(home.root);
  home.finish();
  home.main.runPosted();
  EXPECT_FALSE(model._searchHits.get());
  EXPECT_TRUE(model._searching.get()) << "a query that stands is searched again";
  home.queue(QueueName::search).advance(std::chrono::milliseconds(120));
  home.main.runPosted();
  EXPECT_THAT(found(model), ElementsAre("winter.raw", "winter.mp4"));
}

}  // namespace
}  // namespace quon::test
