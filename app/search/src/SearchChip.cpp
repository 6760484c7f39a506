#include "search/SearchChip.h"

#include <algorithm>

#include "search/TokenQuery.h"
#include "search/Tokens.h"

namespace quon {
namespace {

void join(std::string& text, std::string_view token) {
  if (token.empty()) return;
  if (!text.empty()) text += ' ';
  text += token;
}

}  // namespace

SearchField absorbChips(SearchField field, bool includePartial, KindLabelOf labelOf) {
  const std::string_view typed = field.text;
  std::string left;
  bool absorbed = false;
  for (const std::string_view token : tokensOf(typed)) {
    const bool isPartial = token.data() + token.size() == typed.data() + typed.size();
    auto chip = isPartial && !includePartial ? std::nullopt : TokenQuery::chip(token, labelOf);
    if (!chip) {
      join(left, token);
      continue;
    }
    absorbed = true;
    if (std::ranges::find(field.chips, *chip) == field.chips.end()) field.chips.push_back(std::move(*chip));
  }
  if (absorbed) field.text = std::move(left);
  return field;
}

SearchField withoutChip(SearchField field, const SearchChip& chip) {
  std::erase(field.chips, chip);
  return field;
}

std::string effectiveQuery(const SearchField& field) {
  std::string query;
  for (const SearchChip& chip : field.chips) join(query, chip.raw);
  join(query, field.text);
  return query;
}

}  // namespace quon
