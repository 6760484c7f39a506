#pragma once

#include <string>

#include "linux_fs/Descriptor.h"

namespace quon {

/// Makes the folder of the program's state when it is missing, and closes it to everybody but its owner, who
/// must be the user. Throws std::system_error.
void ensureStateFolder(const std::string& path);

/// Opens a file of the state folder for writing, made for the user alone when it is missing. Throws
/// std::system_error.
[[nodiscard]] Descriptor openStateFile(const std::string& path);

}  // namespace quon
