#pragma once

#include <string>

#include "platform/DiskIdentity.h"

namespace quon {

/// Which file system the folder is on. Unknown when it cannot be opened. Threads: any.
[[nodiscard]] DiskIdentity diskOf(const std::string& path);
/// The kernel's identity of this boot.
[[nodiscard]] std::string bootIdentity();

}  // namespace quon
