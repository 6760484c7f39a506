#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace quon {

/// All counted files of one folder, packed into one allocation: their records, then the bytes of their names.
/// Threads: confined to one at a time; moved from the thread that lists to the one that writes.
class FileBatch {
 public:
  struct File {
    std::string_view name;  ///< bytes; lives as long as the batch
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;
    std::int64_t mtime = 0;
  };

  /// Gathers the files of one folder after the other, reusing its memory.
  class Builder {
   public:
    void clear();
    void add(const File& file);
    [[nodiscard]] FileBatch build() const;

   private:
    friend class FileBatch;
    struct Record {
      std::uint64_t logical;
      std::uint64_t physical;
      std::int64_t mtime;
      std::uint64_t nameEnd;  ///< of the name's bytes, counted from the first name's
    };
    std::vector<Record> records;
    std::string names;
  };

  FileBatch() = default;

  [[nodiscard]] std::size_t size() const { return count; }
  [[nodiscard]] std::size_t bytes() const { return allocated; }
  [[nodiscard]] File operator[](std::size_t index) const;

 private:
  std::unique_ptr<std::byte[]> memory;
  std::size_t count = 0;
  std::size_t allocated = 0;
};

}  // namespace quon
