#pragma once

#include <string>
#include <string_view>

#include "linux_fs/Descriptor.h"

namespace quon {

/// A file that the user asked for: written under a name of its own in the destination's folder, and moved to
/// its place when it is whole. What is there is replaced only if it is a regular file, and keeps its
/// permissions. Failures are std::runtime_error, whose what() names the file and the reason. Threads: any, one
/// at a time.
class NewFile {
 public:
  explicit NewFile(std::string destination);
  /// Removes what did not get its place.
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// Where `write` will write it, for whoever must remove it when the process is ended.
  [[nodiscard]] const std::string& unfinished() const { return place; }

  /// The whole content; then the file is in its place. Once.
  void write(std::string_view bytes);

 private:
  void create();
  [[noreturn]] void raise(int error) const;

  const std::string path;
  const std::string place;
  Descriptor opened;
  bool isFinished = false;
};

}  // namespace quon
