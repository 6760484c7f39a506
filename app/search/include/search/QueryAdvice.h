#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quon {

// What to say to a person, or a script, about a search that may not mean what was typed. Threads: any.

/// A filter whose value cannot be read, so that the search goes without it.
struct IgnoredFilter {
  std::string token;   ///< as typed
  std::string reason;  ///< why, and what could be read instead; fit to be shown

  friend bool operator==(const IgnoredFilter&, const IgnoredFilter&) = default;
};

[[nodiscard]] std::vector<IgnoredFilter> ignoredFilters(std::string_view text);

/// For a search that found nothing: what to type instead of words that look like filters, patterns or
/// exclusions but are searched for as they stand. Fit to be shown.
[[nodiscard]] std::vector<std::string> searchHints(std::string_view text);

}  // namespace quon
