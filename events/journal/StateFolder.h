#pragma once

#include <string>

#include "linux_fs/Descriptor.h"

namespace quon {

/// Makes the folder that holds the program's state when it is missing, and sees to it that nobody but its
/// owner, who is the user, may enter it. Throws std::system_error.
void ensureStateFolder(const std::string& path);

/// Opens a file of the state folder for writing, made for the user alone when it is missing. Throws
/// std::system_error.
[[nodiscard]] Descriptor openStateFile(const std::string& path);

/// An exclusive lock on a file of the state folder, held until destruction; waits for it.
class StateFileLock {
 public:
  explicit StateFileLock(const std::string& path);

 private:
  Descriptor file;
};

}  // namespace quon
