#pragma once

#include <string_view>
#include <vector>

namespace quon {

/// The words of a text between whitespace, in order, never empty; views into the text. Whitespace is
/// Unicode's, so that the space of a Japanese or Chinese input method separates as well.
/// Threads: any.
[[nodiscard]] std::vector<std::string_view> tokensOf(std::string_view text);

}  // namespace quon
