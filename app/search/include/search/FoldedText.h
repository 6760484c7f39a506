#pragma once

#include <string>
#include <string_view>

namespace quon {

// Text as searches compare it: in lower case and in Unicode's composed normal form (NFC), so that "É" is the
// same letter whether a name stores it as one code point or as "E" and a combining accent. Bytes outside a
// valid UTF-8 sequence stay as they are. Threads: any.

[[nodiscard]] std::string folded(std::string_view bytes);

/// Appends the folded bytes. Faster than `folded` for many names in a row: no memory is allocated for text
/// that is composed already, in any script.
void appendFolded(std::string& text, std::string_view bytes);

}  // namespace quon
