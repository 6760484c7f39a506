#pragma once

#include <string>
#include <string_view>

namespace quon {

/// Two lower-case hexadecimal digits for each byte. Threads: any.
[[nodiscard]] std::string hexDigits(std::string_view bytes);

}  // namespace quon
