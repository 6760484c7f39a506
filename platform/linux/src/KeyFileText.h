#pragma once

#include <string>
#include <string_view>

namespace quon {

// The text of a key file, of which one line is read or replaced: whatever else it contains, also what is no
// line of a key file, stays byte for byte. Of several lines for a key in its group the last one counts.

/// The line "key=value", without its end; "" when the group has none.
[[nodiscard]] std::string_view keyFileLine(std::string_view text, std::string_view group,
                                           std::string_view key);

/// The text with another line for the key, which ends the group when there was none.
[[nodiscard]] std::string withKeyFileLine(std::string_view text, std::string_view group, std::string_view key,
                                          std::string_view line);

}  // namespace quon
