#pragma once

#include <string>

#include "linux_fs/Descriptor.h"

namespace quon {

// Folders are opened for reading, close-on-exec, and without a change of their access time where the kernel
// allows that (to their owner and to root): it would be a write to the user's disk. Anything but a directory
// is refused. On failure the descriptor is not open and errno has the reason. Threads: any.

/// Opens a path of any length that contains no symbolic link: a folder that was replaced by one must not lead
/// out of the tree. The path is absolute, or relative to the open folder `at`, which the empty path names.
[[nodiscard]] Descriptor openFolder(int at, const std::string& path);

/// Opens an entry of an open folder. The name contains no slash.
[[nodiscard]] Descriptor openChildFolder(int parent, const char* name);

}  // namespace quon
