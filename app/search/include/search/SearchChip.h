#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "base/FunctionRef.h"

namespace quon {

/// How a file kind is shown: its name for people and the slot of its colour.
struct KindLabel {
  std::string label;
  std::optional<int> slot;
};

/// Returns the label of a kind by its id, one of those that TokenQuery::kindNamed returns.
using KindLabelOf = FunctionRef<KindLabel(std::string_view kindId)>;

/// A filter of the search that was typed and then taken out of the text, shown as a pill that can be removed.
/// Threads: a value; any.
struct SearchChip {
  enum class Category : std::uint8_t { kind, size, path, name, age };

  std::string raw;    ///< the token in canonical form, lower case; parsing it gives the same filter
  std::string label;  ///< fit to be shown
  Category category = Category::kind;
  std::optional<int> slot;  ///< of the kind's colour, for a chip of a kind that has one

  friend bool operator==(const SearchChip&, const SearchChip&) = default;
};

// The search field's contents: text still being typed, and the chips in front of it. Threads: any.

struct SearchField {
  std::string text;
  std::vector<SearchChip> chips;
};

/// Takes every token that stands for a filter out of the text and appends its chip, unless an equal one is
/// there. What is left is joined by single spaces; a text without such tokens stays as it is, spaces
/// included. The last token is still being typed, and stays, unless whitespace follows it or `includePartial`
/// is set.
[[nodiscard]] SearchField absorbChips(SearchField field, bool includePartial, KindLabelOf labelOf);

/// The field without the chips that equal this one.
[[nodiscard]] SearchField withoutChip(SearchField field, const SearchChip& chip);

/// All that is searched for, as one text to parse: the chips' tokens, then the text.
[[nodiscard]] std::string effectiveQuery(const SearchField& field);

}  // namespace quon
