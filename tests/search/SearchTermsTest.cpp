// Terms found in text that comes in pieces, against a search of the whole text.
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <vector>

#include "SearchTerms.h"
#include "support/Seed.h"

namespace quon::test {
namespace {

std::string randomText(std::mt19937_64& random, std::size_t longest, std::string_view letters) {
  std::string text(random() % (longest + 1), 'a');
  for (char& letter : text) letter = letters[random() % letters.size()];
  return text;
}

TEST(SearchTerms, OccurInPiecesWhereTheyOccurInTheWholePath) {
  std::mt19937_64 random(randomSeed());
  std::size_t found = 0;
  for (int round = 0; round < 4000; ++round) {
    std::vector<std::string> texts(random() % 4);
    for (std::string& text : texts) text = randomText(random, 6, round % 2 == 0 ? "aaab/" : "aaab");
    const SearchTerms terms(texts);
    std::vector<std::size_t> states(terms.size(), 0);
    std::string whole;
    for (std::size_t pieces = 1 + random() % 6; pieces > 0; --pieces) {
      const std::string piece = (whole.empty() ? "" : "/") + randomText(random, 8, "aaab");
      whole += piece;
      bool all = true;
      for (const std::string& text : texts) all = all && whole.find(text) != std::string::npos;
      ASSERT_EQ(terms.occurWith(states, piece), all) << whole;
      ASSERT_EQ(terms.advance(states, states, piece) == 0, all) << whole;
      found += all && !texts.empty() ? 1 : 0;
    }
  }
  EXPECT_GT(found, 500U) << "the texts are too rare to test anything";
}

}  // namespace
}  // namespace quon::test
