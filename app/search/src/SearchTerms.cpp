#include "SearchTerms.h"

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

std::vector<std::string> withoutRepeats(std::vector<std::string> texts) {
  std::ranges::sort(texts);
  texts.erase(std::unique(texts.begin(), texts.end()), texts.end());
  return texts;
}

}  // namespace

SearchTerms::SearchTerms(std::vector<std::string> wanted) : texts(withoutRepeats(std::move(wanted))) {
  terms.reserve(texts.size());
  for (const std::string& text : texts) terms.emplace_back(text);
}

SearchTerms::Term::Term(const std::string& wanted)
    : text(wanted),
      borders(wanted.find('/') == std::string::npos ? std::vector<std::size_t>() : bordersOf(wanted)),
      searcher(wanted.begin(), wanted.end()) {}

std::size_t SearchTerms::Term::advance(std::size_t matched, std::string_view piece) const {
  if (isWhole(matched)) return matched;
  if (!borders.empty()) return follow(matched, piece);
  if (piece.size() < text.size()) return 0;
  return std::search(piece.begin(), piece.end(), searcher) == piece.end() ? 0 : text.size();
}

std::size_t SearchTerms::Term::follow(std::size_t matched, std::string_view piece) const {
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

std::size_t SearchTerms::advance(ConstStates from, States to, std::string_view piece) const {
  std::size_t missing = 0;
  for (std::size_t at = 0; at < terms.size(); ++at) {
    to[at] = terms[at].advance(from[at], piece);
    if (!terms[at].isWhole(to[at])) ++missing;
  }
  return missing;
}

bool SearchTerms::occurWith(ConstStates from, std::string_view piece) const {
  for (std::size_t at = 0; at < terms.size(); ++at) {
    if (!terms[at].isWhole(terms[at].advance(from[at], piece))) return false;
  }
  return true;
}

}  // namespace quon
