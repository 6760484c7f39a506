#include "Needles.h"

#include <algorithm>
#include <utility>

namespace quon {
namespace {

std::vector<std::size_t> bordersOf(std::string_view text) {
  std::vector<std::size_t> borders(text.size(), 0);
  for (std::size_t at = 1; at < text.size(); ++at) {
    std::size_t border = borders[at - 1];
    while (border > 0 && text[border] != text[at]) border = borders[border - 1];
    borders[at] = text[border] == text[at] ? border + 1 : 0;
  }
  return borders;
}

}  // namespace

Needles::Needles(std::vector<std::string> texts) {
  std::ranges::sort(texts);
  texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
  for (std::string& text : texts) {
    std::vector<std::size_t> borders = bordersOf(text);
    needles.push_back({std::move(text), std::move(borders)});
  }
}

std::size_t Needles::Needle::advance(std::size_t matched, std::string_view piece) const {
  if (matched == text.size()) return matched;
  for (std::size_t at = 0; at < piece.size();) {
    if (matched == 0) {
      at = piece.find(text.front(), at);
      if (at == std::string_view::npos) return 0;
    } else if (piece[at] != text[matched]) {
      matched = borders[matched - 1];
      continue;
    }
    ++at;
    if (++matched == text.size()) return matched;
  }
  return matched;
}

std::size_t Needles::advance(ConstStates from, States to, std::string_view piece) const {
  std::size_t missing = 0;
  for (std::size_t at = 0; at < needles.size(); ++at) {
    to[at] = needles[at].advance(from[at], piece);
    if (to[at] < needles[at].text.size()) ++missing;
  }
  return missing;
}

bool Needles::areFoundWith(ConstStates from, std::string_view piece) const {
  for (std::size_t at = 0; at < needles.size(); ++at) {
    if (needles[at].advance(from[at], piece) < needles[at].text.size()) return false;
  }
  return true;
}

}  // namespace quon
