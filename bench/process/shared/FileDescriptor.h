#pragma once

#include <unistd.h>
#include <utility>

namespace quon::bench {

/// Owns one descriptor, or none (-1).
/// Threads: any, one at a time.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int owned) : descriptor(owned) {}
  FileDescriptor(FileDescriptor&& other) noexcept : descriptor(std::exchange(other.descriptor, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(descriptor, other.descriptor);
    return *this;
  }
  ~FileDescriptor() {
    // A failing close has nothing to say here: what was written has been checked where it was written.
    if (descriptor >= 0) ::close(descriptor);
  }

  [[nodiscard]] int get() const { return descriptor; }
  [[nodiscard]] explicit operator bool() const { return descriptor >= 0; }

 private:
  int descriptor = -1;
};

}  // namespace quon::bench
