#include "base/Text.h"

#include <array>
#include <cstdint>
#include <cstring>
#include <utf8proc.h>
#include <vector>

// Everything walks the bytes one code point at a time with next(), which never fails: a byte that belongs to
// no valid sequence is a step of its own. Names are mostly ASCII, so what runs over every name of a disk
// (validUtf8Prefix, lowerCase) has a path of its own for it.

namespace quon {

namespace {

constexpr std::string_view replacement = "\uFFFD";
constexpr std::string_view ellipsis = "…";

bool isAscii(char byte) {
  return static_cast<unsigned char>(byte) < 0x80;
}

struct Step {
  std::size_t length;          // in bytes, at least 1
  utf8proc_int32_t codePoint;  // negative for a byte outside a valid sequence
};

/// `bytes` must not be empty.
Step next(std::string_view bytes) {
  if (isAscii(bytes.front())) return {1, bytes.front()};
  utf8proc_int32_t codePoint = -1;
  const auto length = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(bytes.data()),
                                       static_cast<utf8proc_ssize_t>(bytes.size()), &codePoint);
  if (length <= 0) return {1, -1};
  return {static_cast<std::size_t>(length), codePoint};
}

std::size_t asciiPrefix(std::string_view bytes) {
  std::size_t at = 0;
  for (std::uint64_t word = 0; bytes.size() - at >= sizeof word; at += sizeof word) {
    std::memcpy(&word, bytes.data() + at, sizeof word);
    if ((word & 0x8080808080808080U) != 0) break;
  }
  while (at < bytes.size() && isAscii(bytes[at])) ++at;
  return at;
}

void append(std::string& text, utf8proc_int32_t codePoint) {
  std::array<utf8proc_uint8_t, 4> encoded{};
  const auto length = utf8proc_encode_char(codePoint, encoded.data());
  text.append(reinterpret_cast<const char*>(encoded.data()), static_cast<std::size_t>(length));
}

/// The code point of two bytes that are a whole sequence at the front of the text; 0 when there is none.
std::size_t pairAt(std::string_view bytes) {
  if (bytes.size() < 2) return 0;
  const auto lead = static_cast<unsigned char>(bytes[0]);
  const auto trail = static_cast<unsigned char>(bytes[1]);
  if (lead < 0xc2 || lead > 0xdf || (trail & 0xc0U) != 0x80) return 0;
  return (lead & 0x1fU) << 6U | (trail & 0x3fU);
}

/// The lower case of the code points that take two bytes (Latin, Greek, Cyrillic, Hebrew, Arabic), where it
/// takes two as well; 0 elsewhere. Looking them up one by one took most of a search of names in these
/// scripts.
using PairLowers = std::array<std::uint16_t, 0x800>;

const PairLowers& pairLowers() {
  static const PairLowers kLowers = [] {
    PairLowers lowers{};
    for (std::size_t codePoint = 0x80; codePoint < lowers.size(); ++codePoint) {
      const auto lower = utf8proc_tolower(static_cast<utf8proc_int32_t>(codePoint));
      if (lower >= 0x80 && lower < 0x800) lowers[codePoint] = static_cast<std::uint16_t>(lower);
    }
    return lowers;
  }();
  return kLowers;
}

/// C1 controls, the separators that end a line, and the embeddings, overrides and isolates whose effect
/// reaches past the name. The implicit marks (U+200E, U+200F) act as a letter would and stay.
bool mustNotShow(utf8proc_int32_t codePoint) {
  return (codePoint >= 0x80 && codePoint <= 0x9f) || (codePoint >= 0x2028 && codePoint <= 0x202e) ||
         (codePoint >= 0x2066 && codePoint <= 0x2069);
}

std::size_t columnsOf(utf8proc_int32_t codePoint) {
  return codePoint < 0 ? 1 : static_cast<std::size_t>(utf8proc_charwidth(codePoint));
}

/// A grapheme cluster; an invalid byte is one of its own.
struct Cluster {
  std::size_t offset;
  std::size_t columns;
};

std::vector<Cluster> clustersOf(std::string_view utf8) {
  std::vector<Cluster> clusters;
  utf8proc_int32_t previous = -1;
  utf8proc_int32_t state = 0;
  for (std::size_t at = 0; at < utf8.size();) {
    const Step step = next(utf8.substr(at));
    if (previous < 0 || step.codePoint < 0) {
      state = 0;
      clusters.push_back({at, 0});
    } else if (utf8proc_grapheme_break_stateful(previous, step.codePoint, &state)) {
      clusters.push_back({at, 0});
    }
    clusters.back().columns += columnsOf(step.codePoint);
    previous = step.codePoint;
    at += step.length;
  }
  return clusters;
}

}  // namespace

std::size_t validUtf8Prefix(std::string_view bytes) {
  std::size_t at = 0;
  for (;;) {
    at += asciiPrefix(bytes.substr(at));
    if (at == bytes.size()) return at;
    const Step step = next(bytes.substr(at));
    if (step.codePoint < 0) return at;
    at += step.length;
  }
}

bool isValidUtf8(std::string_view bytes) {
  return validUtf8Prefix(bytes) == bytes.size();
}

std::string displayText(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    const Step step = next(bytes);
    if (step.codePoint < 0 || mustNotShow(step.codePoint)) {
      text += replacement;
    } else if (step.codePoint < 0x20) {
      append(text, 0x2400 + step.codePoint);
    } else if (step.codePoint == 0x7f) {
      append(text, 0x2421);
    } else {
      text += bytes.substr(0, step.length);
    }
    bytes.remove_prefix(step.length);
  }
  return text;
}

std::size_t displayWidth(std::string_view utf8) {
  std::size_t columns = 0;
  while (!utf8.empty()) {
    const Step step = next(utf8);
    columns += columnsOf(step.codePoint);
    utf8.remove_prefix(step.length);
  }
  return columns;
}

std::string fitToWidth(std::string_view utf8, std::size_t columns) {
  if (displayWidth(utf8) <= columns) return std::string(utf8);
  if (columns == 0) return {};

  const std::vector<Cluster> clusters = clustersOf(utf8);
  std::size_t left = columns - 1;
  // The longer half in front; what a wide character leaves over there goes to the end. Neither loop reaches
  // the other's clusters, since all of them together are too wide.
  const std::size_t forFront = left - left / 2;
  std::size_t front = 0;
  for (std::size_t used = 0; used + clusters[front].columns <= forFront; ++front) {
    used += clusters[front].columns;
    left -= clusters[front].columns;
  }
  std::size_t back = clusters.size();
  for (; clusters[back - 1].columns <= left; --back) left -= clusters[back - 1].columns;

  std::string fitted(utf8.substr(0, clusters[front].offset));
  fitted += ellipsis;
  if (back < clusters.size()) fitted += utf8.substr(clusters[back].offset);
  return fitted;
}

std::vector<std::size_t> characterOffsets(std::string_view utf8) {
  std::vector<std::size_t> offsets;
  for (const Cluster& cluster : clustersOf(utf8)) offsets.push_back(cluster.offset);
  return offsets;
}

std::string lowerCase(std::string_view bytes) {
  std::string lower(bytes.size(), '\0');
  unsigned char seen = 0;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    const auto byte = static_cast<unsigned char>(bytes[at]);
    const bool isUpper = byte >= 'A' && byte <= 'Z';
    lower[at] = static_cast<char>(isUpper ? byte | 0x20 : byte);
    seen |= byte;
  }
  if (seen < 0x80) return lower;

  lower.clear();
  lower.reserve(bytes.size());
  const PairLowers& pairs = pairLowers();
  while (!bytes.empty()) {
    if (const std::size_t pair = pairAt(bytes); pair != 0 && pairs[pair] != 0) {
      lower += static_cast<char>(0xc0U | pairs[pair] >> 6U);
      lower += static_cast<char>(0x80U | (pairs[pair] & 0x3fU));
      bytes.remove_prefix(2);
      continue;
    }
    const Step step = next(bytes);
    if (step.codePoint < 0) {
      lower += bytes.front();
    } else if (step.length == 1) {
      const bool isUpper = step.codePoint >= 'A' && step.codePoint <= 'Z';
      lower += static_cast<char>(isUpper ? step.codePoint | 0x20 : step.codePoint);
    } else {
      append(lower, utf8proc_tolower(step.codePoint));
    }
    bytes.remove_prefix(step.length);
  }
  return lower;
}

}  // namespace quon
