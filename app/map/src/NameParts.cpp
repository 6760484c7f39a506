#include "NameParts.h"

#include <algorithm>

#include "base/Text.h"

namespace quon {
namespace {

constexpr std::string_view kEllipsis = "…";

/// The pieces that lines are made of, each with what it ends with.
std::vector<std::string_view> piecesOf(const ShownName& name) {
  const std::string_view text = name.text;
  std::size_t extension = name.isFile ? extensionOf(text) : text.size();
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const std::string_view lastDot = text.substr(std::min(text.rfind('.'), text.size()));
  if (lastDot.size() > 1 && std::ranges::all_of(lastDot.substr(1), isDigit))
    extension = text.size();  // a version
  std::vector<std::string_view> pieces;
  std::size_t begin = 0;
  for (std::size_t at = 1; at < text.size(); ++at) {
    const char before = text[at - 1];
    const bool isBreak = before == ' ' || before == '-' || before == '_' || at == extension;
    if (!isBreak || text[at] == ' ') continue;
    pieces.push_back(text.substr(begin, at - begin));
    begin = at;
  }
  pieces.push_back(text.substr(begin));
  return pieces;
}

std::string lineOf(std::string_view from, std::string_view to) {
  std::string line(from.data(), to.data() + to.size());
  while (line.ends_with(' ')) line.pop_back();
  return line;
}

/// The least length of the longest of so many lines, by putting breaks greedily; whether this limit suffices.
bool fillsWithin(const std::vector<double>& pieces, std::size_t lines, double limit,
                 std::vector<std::size_t>& firsts) {
  firsts.assign(1, 0);
  double used = 0;
  for (std::size_t at = 0; at < pieces.size(); ++at) {
    // The lines to come take at least a piece each.
    const std::size_t linesLeft = lines - firsts.size();
    const bool mustBreak = at > firsts.back() && pieces.size() - at <= linesLeft;
    if (at > firsts.back() && (used + pieces[at] > limit || mustBreak)) {
      if (firsts.size() == lines) return false;
      firsts.push_back(at);
      used = 0;
    }
    used += pieces[at];
    if (used > limit) return false;
  }
  return firsts.size() == lines;
}

}  // namespace

std::size_t extensionOf(std::string_view name) {
  constexpr std::size_t kLongest = 8;
  const auto isPlain = [](char c) {
    return (c >= '0' && c <= '9') || ((c | 0x20) >= 'a' && (c | 0x20) <= 'z');
  };
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos || dot == 0) return name.size();
  const std::string_view letters = name.substr(dot + 1);
  if (letters.empty() || letters.size() > kLongest || !std::ranges::all_of(letters, isPlain))
    return name.size();
  constexpr std::string_view kArchive = ".tar";
  const std::string_view stem = name.substr(0, dot);
  return stem.size() > kArchive.size() && stem.ends_with(kArchive) ? dot - kArchive.size() : dot;
}

std::optional<std::vector<std::string>> broken(const ShownName& name, std::size_t lines,
                                               const TextStyle& style, TextWidths& widths) {
  constexpr std::size_t kMostPieces = 40;  // what has more fits nowhere
  const std::vector<std::string_view> pieces = piecesOf(name);
  if (pieces.size() < lines || pieces.size() > kMostPieces) return std::nullopt;
  std::vector<double> lengths;
  lengths.reserve(pieces.size());
  for (const std::string_view piece : pieces) lengths.push_back(widths.of(piece, style));
  // The longest line is some run of pieces: the shortest such run that suffices.
  std::vector<double> limits;
  for (std::size_t first = 0; first < lengths.size(); ++first) {
    double run = 0;
    for (std::size_t last = first; last < lengths.size(); ++last) limits.push_back(run += lengths[last]);
  }
  std::ranges::sort(limits);
  constexpr double kRounding = 1e-6;
  std::vector<std::size_t> firsts;
  const auto best = std::ranges::partition_point(
      limits, [&](double limit) { return !fillsWithin(lengths, lines, limit + kRounding, firsts); });
  if (best == limits.end() || !fillsWithin(lengths, lines, *best + kRounding, firsts)) return std::nullopt;
  std::vector<std::string> broken;
  for (std::size_t line = 0; line < lines; ++line) {
    const std::size_t end = line + 1 < lines ? firsts[line + 1] : pieces.size();
    broken.push_back(lineOf(pieces[firsts[line]], pieces[end - 1]));
  }
  return broken;
}

std::optional<CutName> cut(const ShownName& name, std::size_t fewest,
                           const std::function<bool(const std::string&)>& fits) {
  constexpr std::size_t kLongExtension = 5;  // with the dot
  const std::string_view text = name.text;
  const std::vector<std::size_t> starts = characterOffsets(text);
  const std::size_t count = starts.size();
  const std::size_t extension = name.isFile ? extensionOf(text) : text.size();
  const auto stem = static_cast<std::size_t>(std::ranges::lower_bound(starts, extension) - starts.begin());
  const auto front = [&](std::size_t characters) {
    std::string_view begin = text.substr(0, starts[characters]);
    while (begin.ends_with(' ')) begin.remove_suffix(1);
    return std::string(begin) + std::string(kEllipsis);
  };
  if (text.size() - extension >= kLongExtension && extension < text.size() && stem >= fewest &&
      fits(front(stem))) {
    return CutName{front(stem), stem};
  }
  // The last character before the extension stays with it.
  const std::size_t tail = extension < text.size() && stem > 1 ? count - stem + 1 : 0;
  const auto shortened = [&](std::size_t kept) {
    return front(kept - tail) + std::string(tail == 0 ? "" : text.substr(starts[count - tail]));
  };
  std::size_t low = std::max({fewest, tail + 1, std::size_t{1}});
  if (low >= count || !fits(shortened(low))) return std::nullopt;
  std::size_t high = count;  // does not fit, or is no cut
  while (high - low > 1) {
    const std::size_t middle = low + (high - low) / 2;
    (fits(shortened(middle)) ? low : high) = middle;
  }
  // Spaces before the "…" are lost.
  const std::string cutText = shortened(low);
  const std::size_t kept = characterOffsets(cutText).size() - 1;
  return kept < fewest ? std::nullopt : std::optional(CutName{cutText, kept});
}

}  // namespace quon
