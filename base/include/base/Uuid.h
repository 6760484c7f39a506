#pragma once

#include <string>

namespace quon {

/// A random UUID (RFC 4122, version 4) as upper-case hex with dashes, 36 characters. A machine that cannot
/// give random bytes is fatal. Threads: any.
[[nodiscard]] std::string freshUuid();

}  // namespace quon
