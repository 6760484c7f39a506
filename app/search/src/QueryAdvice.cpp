#include "search/QueryAdvice.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <fmt/format.h>
#include <optional>

#include "Filter.h"
#include "base/Text.h"
#include "search/TokenQuery.h"
#include "search/Tokens.h"

namespace quon {
namespace {

using Category = SearchChip::Category;

/// Why a filter with a key that is known cannot be read; none when it can.
std::optional<std::string> problemOf(const Filter& filter) {
  const Bound bound = boundOf(filter.value);
  switch (filter.category) {
    case Category::kind:
      if (TokenQuery::kindNamed(filter.value)) return std::nullopt;
      return "no such kind; kinds are code, images, archives, docs, video, audio, disk, data, bins, fonts, "
             "other";
    case Category::size:
      if (TokenQuery::parseBytes(bound.amount)) return std::nullopt;
      return "not a size; sizes are written as in size:>100mb or size:<1.5gb, with kb, mb, gb or tb";
    case Category::age:
      if (TokenQuery::parseDuration(bound.amount)) return std::nullopt;
      return "not an age; ages are written as in age:>2y or age:<10d, with d, w, mo or y";
    case Category::path:
    case Category::name:
      return std::nullopt;
  }
  return std::nullopt;
}

std::string quoted(std::string_view text) {
  return '"' + displayText(text) + '"';
}

/// Keys that people know from elsewhere, and what to type here; "{}" stands for the value.
struct OtherKey {
  std::string_view name;
  std::string_view instead;
};
constexpr std::array<OtherKey, 13> kOtherKeys{{{"ext", ".{}"},
                                               {"extension", ".{}"},
                                               {"suffix", ".{}"},
                                               {"file", "name:{}"},
                                               {"filename", "name:{}"},
                                               {"dir", "in:{}"},
                                               {"folder", "in:{}"},
                                               {"date", "age:>2y or age:<10d"},
                                               {"mtime", "age:>2y or age:<10d"},
                                               {"modified", "age:>2y or age:<10d"},
                                               {"changed", "age:>2y or age:<10d"},
                                               {"older", "age:>{}"},
                                               {"newer", "age:<{}"}}};

bool isWord(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char letter) {
    return (letter >= 'a' && letter <= 'z') || (letter >= 'A' && letter <= 'Z');
  });
}

/// For "ext:mp4".
std::optional<std::string> aboutUnknownKey(std::string_view key, std::string_view value) {
  if (!isWord(key) || value.empty()) return std::nullopt;
  const auto* const known = std::ranges::find(kOtherKeys, lowerCase(key), &OtherKey::name);
  if (known == kOtherKeys.end()) {
    return fmt::format("{}: is no filter; filters are kind: size: age: in: and name:", displayText(key));
  }
  const std::string instead = fmt::format(fmt::runtime(known->instead), displayText(value));
  return fmt::format("{}: is no filter; try {}", displayText(key), instead);
}

/// For "*.mp4".
std::string aboutPattern(std::string_view token) {
  std::string words(token);
  std::ranges::replace(words, '*', ' ');
  std::string instead;
  for (const std::string_view word : tokensOf(words)) {
    if (!instead.empty()) instead += ' ';
    instead += word;
  }
  std::string about = quoted(token) + " is searched for with its asterisk, which matches nothing else";
  if (!instead.empty()) about += "; try " + displayText(instead);
  return about;
}

std::optional<std::string> hintFor(std::string_view token, std::string_view next) {
  if (token.starts_with('-') && token.size() > 1) {
    return quoted(token) + " is searched for as it stands; words cannot be excluded";
  }
  const std::size_t colon = token.find(':');
  const std::string_view key = token.substr(0, colon);
  if (colon != std::string_view::npos) {
    const std::string_view value = token.substr(colon + 1);
    if (!categoryOf(key)) {
      if (auto about = aboutUnknownKey(key, value)) return about;
    } else if (value.empty()) {
      return fmt::format("{} has no value; write {}{} without a space", displayText(token),
                         displayText(token), next.empty() ? "VALUE" : displayText(next));
    }
  } else if (const std::size_t sign = token.find_first_of("<>="); sign != std::string_view::npos) {
    const std::string_view value = token.substr(token[sign] == '=' ? sign + 1 : sign);
    if (categoryOf(token.substr(0, sign))) {
      return fmt::format("{} is no filter; try {}:{}", displayText(token), displayText(token.substr(0, sign)),
                         displayText(value));
    }
  }
  if (token.find('*') != std::string_view::npos) return aboutPattern(token);
  return std::nullopt;
}

}  // namespace

std::vector<IgnoredFilter> ignoredFilters(std::string_view text) {
  std::vector<IgnoredFilter> ignored;
  for (const std::string_view token : tokensOf(text)) {
    const auto filter = filterOf(token);
    if (!filter) continue;
    if (auto problem = problemOf(*filter)) ignored.push_back({std::string(token), std::move(*problem)});
  }
  return ignored;
}

std::vector<std::string> searchHints(std::string_view text) {
  std::vector<std::string> hints;
  const std::vector<std::string_view> tokens = tokensOf(text);
  for (std::size_t at = 0; at < tokens.size(); ++at) {
    const std::string_view next = at + 1 < tokens.size() ? tokens[at + 1] : std::string_view();
    if (auto hint = hintFor(tokens[at], next)) hints.push_back(std::move(*hint));
  }
  return hints;
}

}  // namespace quon
