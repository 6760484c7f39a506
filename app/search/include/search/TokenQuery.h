#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "search/SearchChip.h"

namespace quon {

/// What a search asks for, read from a line such as "report kind:docs size:>1gb in:Library age:<2w".
///
/// A token "key:value" with a known key and a value is a filter; a filter whose value cannot be read is
/// ignored (see QueryAdvice.h); of several that set the same bound the last counts. Every other token is a
/// term. Case does not matter.
///
/// Threads: a value; any.
struct TokenQuery {
  std::vector<std::string> terms;         ///< lower case; each must occur in the name or in the full path
  std::vector<std::string> pathTerms;     ///< lower case; each must occur in the full path
  std::optional<std::string_view> kind;   ///< id of the only file kind wanted; of static lifetime
  std::optional<std::uint64_t> minSize;   ///< bytes in the metric searched by, inclusive
  std::optional<std::uint64_t> maxSize;   ///< likewise
  std::optional<std::int64_t> olderThan;  ///< seconds since 1970; a known time before this
  std::optional<std::int64_t> newerThan;  ///< likewise; a time not before this

  /// `now` in whole seconds since 1970. A time before the range of 64 bits becomes its least.
  [[nodiscard]] static TokenQuery parse(std::string_view text, std::int64_t now);

  /// The chip of one token; none for a term and for a filter whose value cannot be read.
  [[nodiscard]] static std::optional<SearchChip> chip(std::string_view token, KindLabelOf labelOf);

  /// "1.5gb", "300k", "17b" (powers of 1,024, truncated to bytes) or plain bytes. The number is decimal
  /// digits with or without a fraction: no sign (but "+" before plain bytes), no exponent, nothing named.
  /// None for anything else and for what exceeds 64 bits.
  [[nodiscard]] static std::optional<std::uint64_t> parseBytes(std::string_view value);

  /// "2y", "1.5months", "3w", "10days" in seconds, years of 365 and months of 30 days. The number, written as
  /// for parseBytes, must be more than zero. There are no units below a day.
  [[nodiscard]] static std::optional<std::int64_t> parseDuration(std::string_view value);

  /// The id of the file kind that goes by this name, of static lifetime.
  [[nodiscard]] static std::optional<std::string_view> kindNamed(std::string_view value);

  [[nodiscard]] bool isEmpty() const;

  friend bool operator==(const TokenQuery&, const TokenQuery&) = default;
};

}  // namespace quon
