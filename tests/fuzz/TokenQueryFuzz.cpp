// Reads the input as what stands in the search field: parses it at several times, makes a chip of each token
// and takes the chips out of the text. What comes out must agree with itself.
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>
#include <string_view>

#include "base/Text.h"
#include "search/TokenQuery.h"
#include "search/Tokens.h"

namespace quon::test {
namespace {

constexpr std::array<std::int64_t, 4> kTimes{0, 1700000000, std::numeric_limits<std::int64_t>::min(),
                                             std::numeric_limits<std::int64_t>::max()};

constexpr auto kLabelOf = [](std::string_view id) { return KindLabel{std::string(id), std::nullopt}; };

void require(bool holds, const char* what, std::string_view of) {
  if (holds) return;
  std::fprintf(stderr, "%s: %.*s\n", what, static_cast<int>(of.size()), of.data());
  std::abort();
}

/// Amounts are written in digits, points and the letters of units, but for one sign.
bool isPlain(std::string_view amount, std::string_view unitLetters) {
  if (amount.starts_with('+')) amount.remove_prefix(1);
  const std::string lower = lowerCase(amount);
  return lower.find_first_not_of("0123456789." + std::string(unitLetters)) == std::string::npos;
}

void checkAmounts(std::string_view value) {
  if (TokenQuery::parseBytes(value)) require(isPlain(value, "tgmkb"), "bytes from", value);
  if (const auto seconds = TokenQuery::parseDuration(value)) {
    require(isPlain(value, "yearsmonthwkd"), "seconds from", value);
    require(*seconds >= 0, "negative seconds from", value);
  }
}

void checkToken(std::string_view token) {
  checkAmounts(token);
  checkAmounts(token.substr(token.find(':') + 1));
  const TokenQuery query = TokenQuery::parse(token, kTimes[1]);
  require(query.terms.size() + query.pathTerms.size() <= 1, "two terms from", token);
  for (const auto* terms : {&query.terms, &query.pathTerms}) {
    for (const std::string& term : *terms) {
      require(!term.empty() && term == lowerCase(term), "a term not in lower case from", token);
    }
  }
  const auto chip = TokenQuery::chip(token, kLabelOf);
  if (!chip) {
    require(query.isEmpty() || !query.terms.empty(), "a filter without chip", token);
    return;
  }
  require(isValidUtf8(chip->label), "a label that is no text", token);
  require(TokenQuery::chip(chip->raw, kLabelOf) == chip, "a chip that changes when read again", token);
  for (const std::int64_t now : kTimes) {
    require(TokenQuery::parse(chip->raw, now) == TokenQuery::parse(token, now), "a chip of another filter",
            token);
  }
}

void searchFieldOf(const std::string& text) {
  for (const std::int64_t now : kTimes) (void)TokenQuery::parse(text, now).isEmpty();
  for (const std::string_view token : tokensOf(text)) checkToken(token);

  const SearchField partly = absorbChips({text, {}}, false, kLabelOf);
  const SearchField field = absorbChips(partly, true, kLabelOf);
  require(tokensOf(text).size() >= tokensOf(field.text).size() + field.chips.size(), "more than there was",
          text);
  for (const std::string_view token : tokensOf(field.text)) {
    require(!TokenQuery::chip(token, kLabelOf), "a chip was left", token);
  }
  const SearchField whole = absorbChips({effectiveQuery(field), {}}, true, kLabelOf);
  require(whole.chips == field.chips, "chips that their own text does not give", text);
  SearchField emptied = field;
  for (const SearchChip& chip : field.chips) emptied = withoutChip(std::move(emptied), chip);
  require(emptied.chips.empty() && emptied.text == field.text, "a chip that cannot be removed", text);
}

}  // namespace
}  // namespace quon::test

// NOLINTNEXTLINE(readability-identifier-naming): libFuzzer calls it by this name
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  quon::test::searchFieldOf({reinterpret_cast<const char*>(data), size});
  return 0;
}
