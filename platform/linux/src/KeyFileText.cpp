#include "KeyFileText.h"

#include <algorithm>
#include <cstddef>

namespace quon {
namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view trimmed(std::string_view text) {
  const std::size_t begin = std::min(text.find_first_not_of(kBlanks), text.size());
  return text.substr(begin, text.find_last_not_of(kBlanks) + 1 - begin);
}

bool isLineOf(std::string_view line, std::string_view key) {
  const std::size_t equals = line.find('=');
  return equals != std::string_view::npos && trimmed(line.substr(0, equals)) == key;
}

/// Where things stand in the text; npos for what is not there.
struct Places {
  std::size_t line = std::string_view::npos;
  std::size_t lineEnd = std::string_view::npos;   ///< the line's own, without what ends it
  std::size_t groupEnd = std::string_view::npos;  ///< behind the last line of the group that is not blank
};

Places find(std::string_view text, std::string_view group, std::string_view key) {
  Places places;
  bool inGroup = false;
  for (std::size_t begin = 0; begin < text.size();) {
    const std::size_t end = std::min(text.find('\n', begin), text.size());
    const std::string_view line = trimmed(text.substr(begin, end - begin));
    if (line.starts_with('[')) inGroup = line.ends_with(']') && line.substr(1, line.size() - 2) == group;
    if (inGroup && !line.empty()) places.groupEnd = std::min(end + 1, text.size());
    if (inGroup && isLineOf(line, key)) {
      places.line = begin;
      places.lineEnd = end;
    }
    begin = end + 1;
  }
  return places;
}

}  // namespace

std::string_view keyFileLine(std::string_view text, std::string_view group, std::string_view key) {
  const Places places = find(text, group, key);
  if (places.line == std::string_view::npos) return {};
  return trimmed(text.substr(places.line, places.lineEnd - places.line));
}

std::string withKeyFileLine(std::string_view text, std::string_view group, std::string_view key,
                            std::string_view line) {
  const Places places = find(text, group, key);
  std::string changed(text);
  if (places.line != std::string_view::npos) {
    return changed.replace(places.line, places.lineEnd - places.line, line);
  }
  std::string added(line);
  added += '\n';
  std::size_t at = places.groupEnd;
  if (at == std::string_view::npos) {
    at = text.size();
    added.insert(0, "[" + std::string(group) + "]\n");
  }
  if (at > 0 && text[at - 1] != '\n') added.insert(0, "\n");
  return changed.insert(at, added);
}

}  // namespace quon
