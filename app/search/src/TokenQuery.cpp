#include "search/TokenQuery.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <limits>
#include <span>

#include "Filter.h"
#include "base/HumanBytes.h"
#include "base/Text.h"
#include "search/Tokens.h"

// A filter is recognised in one place, filterOf; parse and chip then read the value through the same
// functions, so that a token becomes a chip exactly when it is a filter that takes effect.

namespace quon {
namespace {

using Category = SearchChip::Category;

struct KindName {
  std::string_view name;
  std::string_view id;
};
constexpr std::array<KindName, 35> kKindNames{{{"code", "code"},         {"source", "code"},
                                               {"image", "images"},      {"images", "images"},
                                               {"photo", "images"},      {"photos", "images"},
                                               {"arc", "archives"},      {"archive", "archives"},
                                               {"archives", "archives"}, {"compressed", "archives"},
                                               {"doc", "docs"},          {"docs", "docs"},
                                               {"document", "docs"},     {"documents", "docs"},
                                               {"media", "media"},       {"video", "media"},
                                               {"videos", "media"},      {"audio", "media"},
                                               {"music", "media"},       {"movie", "media"},
                                               {"disk", "disk"},         {"vm", "disk"},
                                               {"img", "disk"},          {"data", "data"},
                                               {"database", "data"},     {"logs", "data"},
                                               {"bin", "bins"},          {"bins", "bins"},
                                               {"binary", "bins"},       {"binaries", "bins"},
                                               {"font", "fonts"},        {"fonts", "fonts"},
                                               {"typeface", "fonts"},    {"other", "other"},
                                               {"misc", "other"}}};

struct Unit {
  std::string_view name;
  double factor;
};

constexpr std::array<Unit, 9> kByteUnits{{{"tb", 0x1p40},
                                          {"t", 0x1p40},
                                          {"gb", 0x1p30},
                                          {"g", 0x1p30},
                                          {"mb", 0x1p20},
                                          {"m", 0x1p20},
                                          {"kb", 0x1p10},
                                          {"k", 0x1p10},
                                          {"b", 1}}};
constexpr double kDay = 86400;
constexpr std::array<Unit, 13> kTimeUnits{{{"years", 365 * kDay},
                                           {"year", 365 * kDay},
                                           {"yr", 365 * kDay},
                                           {"y", 365 * kDay},
                                           {"months", 30 * kDay},
                                           {"month", 30 * kDay},
                                           {"mo", 30 * kDay},
                                           {"weeks", 7 * kDay},
                                           {"week", 7 * kDay},
                                           {"w", 7 * kDay},
                                           {"days", kDay},
                                           {"day", kDay},
                                           {"d", kDay}}};

/// Of a text of digits and points alone, so that there is no sign, exponent or "inf" for std::from_chars to
/// read.
std::optional<double> decimal(std::string_view text) {
  double number = 0;
  const char* const end = text.data() + text.size();
  const auto read = std::from_chars(text.data(), end, number, std::chars_format::fixed);
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return number;
}

struct Amount {
  double number;
  double factor;
};

/// The unit is all that follows the number: "1day" ends in the "y" of a year as well.
std::optional<Amount> amountOf(std::string_view value, std::span<const Unit> units) {
  const std::size_t length = std::min(value.find_first_not_of("0123456789."), value.size());
  const auto unit = std::ranges::find(units, value.substr(length), &Unit::name);
  if (unit == units.end()) return std::nullopt;
  const auto number = decimal(value.substr(0, length));
  if (!number) return std::nullopt;
  return Amount{*number, unit->factor};
}

std::int64_t timeBefore(std::int64_t now, std::int64_t seconds) {
  std::int64_t time = 0;
  return __builtin_sub_overflow(now, seconds, &time) ? std::numeric_limits<std::int64_t>::min() : time;
}

void apply(TokenQuery& query, Filter filter, std::int64_t now) {
  const Bound bound = boundOf(filter.value);
  switch (filter.category) {
    case Category::kind:
      if (const auto kind = TokenQuery::kindNamed(filter.value)) query.kind = kind;
      break;
    case Category::size:
      if (const auto bytes = TokenQuery::parseBytes(bound.amount)) {
        (bound.isBelow ? query.maxSize : query.minSize) = bytes;
      }
      break;
    case Category::path:
      query.pathTerms.push_back(std::move(filter.value));
      break;
    case Category::name:
      query.terms.push_back(std::move(filter.value));
      break;
    case Category::age:
      if (const auto seconds = TokenQuery::parseDuration(bound.amount)) {
        (bound.isBelow ? query.newerThan : query.olderThan) = timeBefore(now, *seconds);
      }
      break;
  }
}

}  // namespace

TokenQuery TokenQuery::parse(std::string_view text, std::int64_t now) {
  TokenQuery query;
  for (const std::string_view token : tokensOf(text)) {
    if (auto filter = filterOf(token)) {
      apply(query, std::move(*filter), now);
    } else {
      query.terms.push_back(lowerCase(token));
    }
  }
  return query;
}

std::optional<SearchChip> TokenQuery::chip(std::string_view token, KindLabelOf labelOf) {
  const auto filter = filterOf(token);
  if (!filter) return std::nullopt;
  const std::string& value = filter->value;
  const Bound bound = boundOf(value);
  switch (filter->category) {
    case Category::kind:
      if (const auto kind = kindNamed(value)) {
        KindLabel shown = labelOf(*kind);
        return SearchChip{"kind:" + value, std::move(shown.label), Category::kind, shown.slot};
      }
      break;
    case Category::size:
      if (const auto bytes = parseBytes(bound.amount)) {
        return SearchChip{"size:" + value, (bound.isBelow ? "< " : "> ") + humanBytes(*bytes), Category::size,
                          std::nullopt};
      }
      break;
    case Category::path:
      return SearchChip{lowerCase(token), "in " + displayText(value), Category::path, std::nullopt};
    case Category::name:
      return SearchChip{"name:" + value, "name " + displayText(value), Category::name, std::nullopt};
    case Category::age:
      if (parseDuration(bound.amount)) {
        return SearchChip{"age:" + value,
                          (bound.isBelow ? "newer than " : "older than ") + std::string(bound.amount),
                          Category::age, std::nullopt};
      }
      break;
  }
  return std::nullopt;
}

std::optional<std::uint64_t> TokenQuery::parseBytes(std::string_view value) {
  const std::string lower = lowerCase(value);
  if (const auto amount = amountOf(lower, kByteUnits)) {
    const double bytes = amount->number * amount->factor;
    if (bytes >= 0x1p64) return std::nullopt;
    return static_cast<std::uint64_t>(bytes);
  }
  std::string_view digits = lower;
  if (digits.starts_with('+')) digits.remove_prefix(1);
  std::uint64_t bytes = 0;
  const char* const end = digits.data() + digits.size();
  const auto read = std::from_chars(digits.data(), end, bytes);
  if (read.ec != std::errc() || read.ptr != end) return std::nullopt;
  return bytes;
}

std::optional<std::int64_t> TokenQuery::parseDuration(std::string_view value) {
  const std::string lower = lowerCase(value);
  const auto amount = amountOf(lower, kTimeUnits);
  if (!amount || amount->number <= 0) return std::nullopt;
  const double seconds = amount->number * amount->factor;
  if (seconds >= 0x1p63) return std::nullopt;
  return static_cast<std::int64_t>(seconds);
}

std::optional<std::string_view> TokenQuery::kindNamed(std::string_view value) {
  const std::string lower = lowerCase(value);
  const auto* const kind = std::ranges::find(kKindNames, lower, &KindName::name);
  if (kind == kKindNames.end()) return std::nullopt;
  return kind->id;
}

bool TokenQuery::isEmpty() const {
  return terms.empty() && pathTerms.empty() && !kind && !minSize && !maxSize && !olderThan && !newerThan;
}

}  // namespace quon
