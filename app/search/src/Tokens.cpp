#include "search/Tokens.h"

#include <algorithm>
#include <array>
#include <cstddef>

namespace quon {
namespace {

using namespace std::string_view_literals;

/// The encodings of the code points with the property White_Space beyond ASCII. Found byte by byte they are
/// never part of another character: each begins with a byte that begins nothing else.
constexpr std::array kWideSpaces{"\u00a0"sv, "\xc2\x85"sv, "\u1680"sv, "\u2000"sv, "\u2001"sv,
                                 "\u2002"sv, "\u2003"sv,   "\u2004"sv, "\u2005"sv, "\u2006"sv,
                                 "\u2007"sv, "\u2008"sv,   "\u2009"sv, "\u200a"sv, "\u2028"sv,
                                 "\u2029"sv, "\u202f"sv,   "\u205f"sv, "\u3000"sv};

/// The length of the space that the text begins with, 0 when it begins with none.
std::size_t spaceLength(std::string_view text) {
  const auto first = static_cast<unsigned char>(text.front());
  if (first < 0x80) return first == ' ' || (first >= '\t' && first <= '\r') ? 1 : 0;
  const auto* const space =
      std::ranges::find_if(kWideSpaces, [&](std::string_view wide) { return text.starts_with(wide); });
  return space == kWideSpaces.end() ? 0 : space->size();
}

}  // namespace

std::vector<std::string_view> tokensOf(std::string_view text) {
  std::vector<std::string_view> tokens;
  std::size_t begin = 0;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t space = spaceLength(text.substr(at));
    if (space > 0 && at > begin) tokens.push_back(text.substr(begin, at - begin));
    at += std::max<std::size_t>(space, 1);
    if (space > 0) begin = at;
  }
  if (begin < text.size()) tokens.push_back(text.substr(begin));
  return tokens;
}

}  // namespace quon
