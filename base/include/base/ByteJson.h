#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace quon {

// Names inside JSON, without loss: JSON contains only Unicode text, a name is any bytes. Threads: any.

/// The bytes as valid UTF-8: valid sequences stay as they are, and every other byte becomes U+0000 followed
/// by its two lower-case hex digits (a JSON writer prints "\u0000ff"). A file name contains no NUL, so
/// nothing is ambiguous; for other bytes a NUL is itself written as U+0000 and "00".
[[nodiscard]] std::string encodeBytes(std::string_view bytes);

/// The bytes that encodeBytes turned into `text`; nullopt for a text that encodeBytes does not write, so that
/// no two texts mean the same name and no escape stands for a "/".
[[nodiscard]] std::optional<std::string> decodeBytes(std::string_view text);

}  // namespace quon
