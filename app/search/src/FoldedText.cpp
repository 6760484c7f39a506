// Nearly every name is composed already, so it is folded code point by code point through a table. A name
// with a code point that composition may change or join with another goes through the library as a whole.
#include "search/FoldedText.h"

#include <array>
#include <bitset>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <new>
#include <utf8proc.h>

#include "base/Text.h"

namespace quon {
namespace {

using CodePoint = utf8proc_int32_t;

constexpr CodePoint kPlaneEnd = 0x10000;
constexpr CodePoint kFirstJoiningJamo = 0x1160;
constexpr CodePoint kEndOfJoiningJamo = 0x1200;
constexpr CodePoint kFirstSyllable = 0xac00;
constexpr CodePoint kEndOfSyllables = 0xd7a4;
constexpr CodePoint kFirstSurrogate = 0xd800;
constexpr CodePoint kEndOfSurrogates = 0xe000;

/// The lower case of each code point of the Basic Multilingual Plane that stands in composed text whatever
/// its neighbours; 0 for the others.
class LowerTable {
 public:
  static const LowerTable& shared() {
    static const LowerTable kTable;
    return kTable;
  }

  [[nodiscard]] unsigned operator[](unsigned codePoint) const { return lowers[codePoint]; }

 private:
  LowerTable() {
    std::bitset<kPlaneEnd> unstable;
    for (CodePoint at = 0x80; at < kPlaneEnd; ++at) markUnstable(at, unstable);
    for (CodePoint at = 0x80; at < kPlaneEnd; ++at) {
      const CodePoint lower = utf8proc_tolower(at);
      if (lower >= kPlaneEnd) continue;
      const bool isStable = !unstable.test(static_cast<std::size_t>(at)) &&
                            (lower < 0x80 || !unstable.test(static_cast<std::size_t>(lower)));
      if (isStable) lowers[static_cast<std::size_t>(at)] = static_cast<std::uint16_t>(lower);
    }
  }

  /// Marks the code point where composition changes or moves it, and those that its decomposition joins to a
  /// first one.
  static void markUnstable(CodePoint at, std::bitset<kPlaneEnd>& unstable) {
    if (at >= kFirstSyllable && at < kEndOfSyllables) return;  // composed by a rule of their own, of jamo
    const bool isJoined = utf8proc_get_property(at)->combining_class != 0 ||
                          (at >= kFirstJoiningJamo && at < kEndOfJoiningJamo);
    if (isJoined || (at >= kFirstSurrogate && at < kEndOfSurrogates)) {
      unstable.set(static_cast<std::size_t>(at));
      return;
    }
    constexpr auto kDecompose = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE);
    constexpr auto kCompose = static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE);
    std::array<CodePoint, 16> parts{};
    const auto count = utf8proc_decompose_char(at, parts.data(), parts.size(), kDecompose, nullptr);
    for (utf8proc_ssize_t part = 1; part < count; ++part) {
      const CodePoint joined = parts.at(static_cast<std::size_t>(part));
      if (joined < kPlaneEnd) unstable.set(static_cast<std::size_t>(joined));
    }
    const bool comesBack =
        count == 1 ? parts[0] == at
                   : utf8proc_normalize_utf32(parts.data(), count, kCompose) == 1 && parts[0] == at;
    if (!comesBack) unstable.set(static_cast<std::size_t>(at));
  }

  std::array<std::uint16_t, kPlaneEnd> lowers{};
};

/// Valid UTF-8 in the composed normal form.
std::string composed(std::string_view utf8) {
  utf8proc_uint8_t* result = nullptr;
  const auto length = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()),
                                   static_cast<utf8proc_ssize_t>(utf8.size()), &result,
                                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  if (length < 0) throw std::bad_alloc();  // nothing else fails for valid text
  struct Free {
    void operator()(utf8proc_uint8_t* bytes) const { std::free(bytes); }  // NOLINT(*-no-malloc)
  };
  const std::unique_ptr<utf8proc_uint8_t, Free> owned(result);
  return {reinterpret_cast<const char*>(result), static_cast<std::size_t>(length)};
}

void appendThroughLibrary(std::string& text, std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t valid = validUtf8Prefix(bytes);
    // Composed before as well: the lower case of a letter and that of its parts may differ (U+0130).
    if (valid > 0) text += composed(lowerCase(composed(bytes.substr(0, valid))));
    bytes.remove_prefix(valid);
    if (bytes.empty()) return;
    text += bytes.front();
    bytes.remove_prefix(1);
  }
}

char lowerAscii(unsigned char byte) {
  const bool isUpper = byte >= 'A' && byte <= 'Z';
  return static_cast<char>(isUpper ? byte | 0x20 : byte);
}

struct Decoded {
  unsigned codePoint = 0;
  std::ptrdiff_t length = 0;
};

/// The code point of two or three bytes that begins a text which is not empty; nothing where another begins
/// it, or none.
Decoded decode(const unsigned char* at, const unsigned char* end) {
  const auto continues = [](unsigned char byte) { return (byte & 0xc0U) == 0x80U; };
  const unsigned lead = *at;
  if (lead >= 0xc2 && lead <= 0xdf && end - at >= 2 && continues(at[1])) {
    return {(lead & 0x1fU) << 6U | (at[1] & 0x3fU), 2};
  }
  if (lead >= 0xe0 && lead <= 0xef && end - at >= 3 && continues(at[1]) && continues(at[2])) {
    const unsigned codePoint = (lead & 0x0fU) << 12U | (at[1] & 0x3fU) << 6U | (at[2] & 0x3fU);
    if (codePoint >= 0x800) return {codePoint, 3};  // a surrogate has no lower case in the table
  }
  return {};
}

char* encode(char* to, unsigned codePoint) {
  if (codePoint < 0x80) {
    *to++ = static_cast<char>(codePoint);
  } else if (codePoint < 0x800) {
    *to++ = static_cast<char>(0xc0U | codePoint >> 6U);
    *to++ = static_cast<char>(0x80U | (codePoint & 0x3fU));
  } else {
    *to++ = static_cast<char>(0xe0U | codePoint >> 12U);
    *to++ = static_cast<char>(0x80U | (codePoint >> 6U & 0x3fU));
    *to++ = static_cast<char>(0x80U | (codePoint & 0x3fU));
  }
  return to;
}

/// False, with the text as it was, when the bytes contain what the table has no lower case for.
bool appendThroughTable(std::string& text, std::string_view bytes) {
  const LowerTable& table = LowerTable::shared();
  const std::size_t before = text.size();
  // The lower case of a letter of two bytes may take three.
  text.resize(before + bytes.size() + bytes.size() / 2);
  char* to = text.data() + before;
  const auto* at = reinterpret_cast<const unsigned char*>(bytes.data());
  const auto* const end = at + bytes.size();
  while (at != end) {
    if (*at < 0x80) {
      *to++ = lowerAscii(*at++);
      continue;
    }
    const Decoded next = decode(at, end);
    const unsigned lower = table[next.codePoint];
    if (lower == 0) {
      text.resize(before);
      return false;
    }
    to = encode(to, lower);
    at += next.length;
  }
  text.resize(static_cast<std::size_t>(to - text.data()));
  return true;
}

}  // namespace

void appendFolded(std::string& text, std::string_view bytes) {
  const std::size_t before = text.size();
  text.resize(before + bytes.size());
  unsigned char seen = 0;
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    const auto byte = static_cast<unsigned char>(bytes[at]);
    text[before + at] = lowerAscii(byte);
    seen |= byte;
  }
  if (seen < 0x80) return;
  text.resize(before);
  if (!appendThroughTable(text, bytes)) appendThroughLibrary(text, bytes);
}

std::string folded(std::string_view bytes) {
  std::string text;
  appendFolded(text, bytes);
  return text;
}

}  // namespace quon
