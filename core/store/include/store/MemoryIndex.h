#pragma once

#include <memory>
#include <string>
#include <string_view>

namespace quon {

/// An index that no disk has room for, or that must not be written: in this process's memory, under a name that
/// every operation on indexes takes like the path of a file. It takes about as many bytes as the file would.
/// It is gone when this object and the last connection to it are. Threads: any.
class MemoryIndex {
 public:
  /// Without a row. StoreError.
  [[nodiscard]] static std::shared_ptr<MemoryIndex> make();
  /// With all that the index contains now. StoreError.
  [[nodiscard]] static std::shared_ptr<MemoryIndex> copyOf(const std::string& url);
  ~MemoryIndex();
  MemoryIndex(const MemoryIndex&) = delete;
  MemoryIndex& operator=(const MemoryIndex&) = delete;

  const std::string url;

  /// True for the name of such an index.
  [[nodiscard]] static bool isURL(std::string_view url);

 private:
  struct Connection;
  MemoryIndex();
  std::unique_ptr<Connection> connection;
};

}  // namespace quon
