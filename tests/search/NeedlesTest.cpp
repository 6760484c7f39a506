// Needles found in text that comes in pieces, held against a search of the whole.
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "Needles.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

std::string randomText(std::mt19937_64& random, std::size_t longest) {
  std::string text(random() % (longest + 1), 'a');
  for (char& letter : text) letter = "aaab/"[random() % 5];
  return text;
}

TEST(Needles, FoundInPiecesAsInTheWhole) {
  std::mt19937_64 random(randomSeed());
  std::size_t found = 0;
  for (int round = 0; round < 3000; ++round) {
    std::vector<std::string> texts(random() % 4);
    for (std::string& text : texts) text = randomText(random, 6);
    const Needles needles(texts);
    std::vector<std::size_t> states(needles.size(), 0);
    std::string whole;
    for (std::size_t pieces = 1 + random() % 6; pieces > 0; --pieces) {
      const std::string piece = randomText(random, 8);
      whole += piece;
      bool all = true;
      for (const std::string& text : texts) all = all && whole.find(text) != std::string::npos;
      ASSERT_EQ(needles.areFoundWith(states, piece), all) << whole;
      ASSERT_EQ(needles.advance(states, states, piece) == 0, all) << whole;
      found += all && !texts.empty() ? 1 : 0;
    }
  }
  EXPECT_GT(found, 500U) << "the texts are too rare to test anything";
}

TEST(Needles, RepeatedTextsAreOne) {
  EXPECT_EQ(Needles({"b", "a", "b"}).size(), 2U);
}

}  // namespace
}  // namespace quon::test
