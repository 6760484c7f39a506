#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quon {

// Names are bytes; these functions are where they become text for people and for searching. Nothing that is
// stored, compared or opened passes through them. Threads: any.

/// The length of the longest prefix that is valid UTF-8 (shortest form, no surrogates, up to U+10FFFF).
[[nodiscard]] std::size_t validUtf8Prefix(std::string_view bytes);

[[nodiscard]] bool isValidUtf8(std::string_view bytes);

/// A name as it may be shown: valid UTF-8 that can neither break a line, drive a terminal nor reorder the
/// text around it. Every byte outside a valid sequence becomes one U+FFFD, so their number shows; C0 controls
/// and DEL become their control pictures (U+2400 onwards); C1 controls, line and paragraph separators and the
/// explicit bidirectional formatting characters become U+FFFD.
[[nodiscard]] std::string displayText(std::string_view bytes);

/// The columns that text takes on a terminal: 0 for a combining mark, 2 for a wide character. Meant for what
/// displayText returned; a byte outside a valid sequence counts as one column.
[[nodiscard]] std::size_t displayWidth(std::string_view utf8);

/// The text unchanged when it fits, otherwise cut in the middle with "…" and at most `columns` wide. Grapheme
/// clusters stay whole, so a character keeps its combining marks. "" when `columns` is 0.
[[nodiscard]] std::string fitToWidth(std::string_view utf8, std::size_t columns);

/// Where each character that people see begins: grapheme clusters. A byte outside a valid sequence is one of
/// its own.
[[nodiscard]] std::vector<std::size_t> characterOffsets(std::string_view utf8);

/// Lower case for searching: every code point by its Unicode mapping to one code point, whatever the locale.
/// Bytes outside a valid sequence pass through unchanged.
[[nodiscard]] std::string lowerCase(std::string_view bytes);

}  // namespace quon
