#include <gtest/gtest.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "base/Observed.h"

namespace quon {
namespace {

using Values = std::vector<int>;

class ObservedFields : public testing::Test {
 protected:
  Notifications notifications;
  Observed<int> first{notifications, 1};
  Observed<int> second{notifications, 1};
};

TEST_F(ObservedFields, NotifyOnlyRealChangesAndOnlyWhileObserved) {
  Values values;
  {
    Observation observation = first.observe([&](int value) { values.push_back(value); });
    first.set(1);
    first.set(2);
    notifications.perform([&] {
      first.set(9);
      first.set(2);
    });
    Observation moved = std::move(observation);
    observation = Observation();
    first.set(3);
    moved = first.observe([&](int value) { values.push_back(-value); });
    first.set(4);
  }
  first.set(5);
  EXPECT_EQ(values, (Values{2, 3, -4}));
}

TEST_F(ObservedFields, ObserversSeeTheWholeOperationOnce) {
  std::vector<std::pair<int, int>> seen;
  const auto record = [&](int) { seen.emplace_back(first.get(), second.get()); };
  const Observation one = first.observe(record);
  const Observation two = second.observe(record);
  notifications.setDerivation([&] { second.set(first.get() * 10); });
  notifications.perform([&] {
    first.set(2);
    notifications.perform([&] { first.set(3); });
    EXPECT_TRUE(seen.empty());
  });
  EXPECT_EQ(seen, (std::vector<std::pair<int, int>>{{3, 30}, {3, 30}}));
}

TEST_F(ObservedFields, WhatAnObserverChangesTakesEffectAfterTheRound) {
  std::vector<std::string> log;
  const Observation setter = first.observe([&](int value) {
    if (value > 2) return;
    notifications.perform([&] { log.push_back("operation"); });
    first.set(3);
    second.set(7);
    log.push_back("setter sees " + std::to_string(first.get()));
  });
  const Observation listener = first.observe([&](int value) {
    log.push_back("listener gets " + std::to_string(value) + ", " + std::to_string(second.get()));
  });
  first.set(2);
  EXPECT_EQ(log, (std::vector<std::string>{"setter sees 2", "listener gets 2, 1", "operation",
                                           "listener gets 3, 1"}));
  EXPECT_EQ(second.get(), 7);
}

TEST_F(ObservedFields, ObserversComeAndGoDuringARound) {
  Values values;
  Observation own;
  Observation other;
  Observation added;
  own = first.observe([&, guard = std::make_shared<int>(7)](int value) {
    own = Observation();
    other = Observation();
    added = first.observe([&](int later) { values.push_back(100 + later); });
    values.push_back(value + *guard);  // still alive, though the observation is not
  });
  other = first.observe([&](int) { values.push_back(-1); });
  first.set(5);
  first.set(2);
  EXPECT_EQ(values, (Values{12, 102}));
}

TEST_F(ObservedFields, AFailingObserverOrOperationHidesNothingFromTheOthers) {
  Values values;
  const Observation failing = first.observe([](int) { throw std::runtime_error("observer"); });
  const Observation listener = first.observe([&](int value) { values.push_back(value); });
  EXPECT_THROW(first.set(2), std::runtime_error);
  EXPECT_THROW(notifications.perform([&] {
    first.set(3);
    throw std::logic_error("operation");
  }),
               std::logic_error);
  EXPECT_EQ(values, (Values{2, 3}));
}

TEST(Observed, MayEndWithItsNotificationsWithinARound) {
  struct Model {
    Notifications notifications;
    Observed<std::string> field{notifications, "old"};
  };
  auto model = std::make_unique<Model>();
  std::string heard;
  const Observation ending = model->field.observe([&](const std::string& value) {
    model->notifications.perform([&] { heard += " after the end"; });
    model.reset();
    heard += value;
  });
  const Observation after = model->field.observe([&](const std::string& value) { heard += "," + value; });
  model->field.set("a value too long to be stored inside the string");
  EXPECT_EQ(model, nullptr);
  EXPECT_EQ(heard, "a value too long to be stored inside the string");
}

}  // namespace
}  // namespace quon
