#include <gtest/gtest.h>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "base/Observed.h"

namespace quon {
namespace {

using Values = std::vector<int>;

TEST(Observed, TellsOnlyRealChangesAndOnlyWhileObserved) {
  Observed<int> field(1);
  Values heard;
  {
    Observation observation = field.observe([&](int value) { heard.push_back(value); });
    field.set(1);
    field.set(2);
    Observation moved = std::move(observation);
    observation = Observation();
    field.set(3);
    moved = field.observe([&](int value) { heard.push_back(-value); });
    field.set(4);
  }
  field.set(5);
  EXPECT_EQ(heard, (Values{2, 3, -4}));
  EXPECT_EQ(field.get(), 5);
}

TEST(Observed, FreesWhatAnEndedObserverCaptured) {
  Observed<int> field;
  const auto captured = std::make_shared<int>();
  std::optional<Observation> observation = field.observe([captured](int) {});
  observation.reset();
  EXPECT_EQ(captured.use_count(), 1);
}

TEST(Observed, ObserversComeAndGoDuringARound) {
  Observed<int> field;
  Values heard;
  Observation own;
  Observation other;
  Observation added;
  own = field.observe([&, guard = std::make_shared<int>(7)](int value) {
    own = Observation();
    other = Observation();
    added = field.observe([&](int later) { heard.push_back(100 + later); });
    heard.push_back(value + *guard);  // still alive, though the observation is not
  });
  other = field.observe([&](int) { heard.push_back(-1); });
  field.set(1);
  field.set(2);
  EXPECT_EQ(heard, (Values{8, 102}));
}

TEST(Observed, NobodyHearsAnOldValueAfterANewerOne) {
  Observed<int> field;
  Values first;
  Values second;
  const Observation setter = field.observe([&](const int& value) {
    first.push_back(value);
    if (value == 1) field.set(2);
    EXPECT_EQ(value, 2);  // the field itself
  });
  const Observation listener = field.observe([&](int value) { second.push_back(value); });
  field.set(1);
  EXPECT_EQ(first, (Values{1, 2}));
  EXPECT_EQ(second, (Values{2}));
}

TEST(Observed, MayEndWithinItsOwnRoundAndBeforeItsObservations) {
  auto field = std::make_unique<Observed<std::string>>("old");
  std::string heard;
  const Observation ending = field->observe([&](const std::string& value) {
    field.reset();
    heard += value;
  });
  const Observation after = field->observe([&](const std::string& value) { heard += "," + value; });
  field->set("a value too long to lie inside the string");
  EXPECT_EQ(field, nullptr);
  EXPECT_EQ(heard, "a value too long to lie inside the string,a value too long to lie inside the string");
}

}  // namespace
}  // namespace quon
