#pragma once

#include <string>
#include <string_view>

namespace quon {

/// The SHA-256 digest of the bytes as 64 lower-case hex digits. A failure of the library is fatal. Threads:
/// any.
[[nodiscard]] std::string sha256Hex(std::string_view bytes);

}  // namespace quon
