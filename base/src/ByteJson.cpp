#include "base/ByteJson.h"

#include <cstddef>

#include "base/Text.h"

namespace quon {

namespace {

constexpr std::string_view hexDigits = "0123456789abcdef";

void appendEscaped(std::string& text, unsigned char byte) {
  text += '\0';
  text += hexDigits[byte >> 4];
  text += hexDigits[byte & 0xf];
}

}  // namespace

std::string encodeBytes(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    // NUL is valid UTF-8, but it is the mark of an escape here.
    const std::size_t plain = validUtf8Prefix(bytes.substr(0, bytes.find('\0')));
    text += bytes.substr(0, plain);
    bytes.remove_prefix(plain);
    if (bytes.empty()) break;
    appendEscaped(text, static_cast<unsigned char>(bytes.front()));
    bytes.remove_prefix(1);
  }
  return text;
}

std::optional<std::string> decodeBytes(std::string_view text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (text[at] != '\0') {
      bytes += text[at];
      continue;
    }
    if (text.size() - at < 3) return std::nullopt;
    const std::size_t high = hexDigits.find(text[at + 1]);
    const std::size_t low = hexDigits.find(text[at + 2]);
    if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
    bytes += static_cast<char>(high << 4 | low);
    at += 2;
  }
  // An escape where none was needed, or bytes that needed one, were not written by encodeBytes.
  if (encodeBytes(bytes) != text) return std::nullopt;
  return bytes;
}

}  // namespace quon
