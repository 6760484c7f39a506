#include "base/ByteJson.h"

#include <charconv>
#include <cstddef>

#include "base/Hex.h"
#include "base/Text.h"

namespace quon {

std::string encodeBytes(std::string_view bytes) {
  std::string text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    // NUL is valid UTF-8, but it is the mark of an escape here.
    const std::size_t plain = validUtf8Prefix(bytes.substr(0, bytes.find('\0')));
    text += bytes.substr(0, plain);
    bytes.remove_prefix(plain);
    if (bytes.empty()) break;
    text += '\0';
    text += hexDigits(bytes.substr(0, 1));
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
    const char* const digits = text.data() + at + 1;
    unsigned char byte = 0;
    if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) return std::nullopt;
    bytes += static_cast<char>(byte);
    at += 2;
  }
  // An escape where none was needed, bytes that needed one, or upper-case digits were not written by
  // encodeBytes.
  if (encodeBytes(bytes) != text) return std::nullopt;
  return bytes;
}

}  // namespace quon
