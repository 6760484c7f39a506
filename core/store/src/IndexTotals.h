#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "store/RowDigest.h"

namespace quon {

/// What all rows of the folders and files of an index add up to. The metadata contains it, every commit keeps
/// it current, and a load that arrives at another sum refuses the index as damaged. Sums are modulo 2^64.
struct IndexTotals {
  std::uint64_t folders = 0;
  std::uint64_t files = 0;
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::uint64_t digest = 0;

  struct Folder {
    std::int64_t id = 0;
    std::int64_t parent = 0;  ///< 0 for the root
    std::string_view name;
    std::int64_t mtime = 0;
    bool error = false;
  };
  struct File {
    std::int64_t folder = 0;
    std::uint64_t logical = 0;
    std::uint64_t physical = 0;
    std::uint64_t digest = 0;  ///< fileDigest
  };

  void add(const Folder& folder) {
    folders += 1;
    digest += digestOf(folder);
  }
  void subtract(const Folder& folder) {
    folders -= 1;
    digest -= digestOf(folder);
  }
  void add(const File& file) {
    files += 1;
    logical += file.logical;
    physical += file.physical;
    digest += digestOf(file);
  }
  void subtract(const File& file) {
    files -= 1;
    logical -= file.logical;
    physical -= file.physical;
    digest -= digestOf(file);
  }
  void add(const IndexTotals& other);
  /// The folder, which was added without an error, has one.
  void markError(std::int64_t folder) { digest += errorDigest(folder); }

  [[nodiscard]] std::string encode() const;
  /// None for a text that `encode` cannot have made.
  [[nodiscard]] static std::optional<IndexTotals> decode(std::string_view text);

  friend bool operator==(const IndexTotals&, const IndexTotals&) = default;

 private:
  [[nodiscard]] static std::uint64_t errorDigest(std::int64_t folder) {
    return RowDigest().add(std::string_view("error")).add(folder).value();
  }
  [[nodiscard]] static std::uint64_t digestOf(const Folder& folder) {
    const std::uint64_t row =
        RowDigest().add(folder.name).add(folder.id).add(folder.parent).add(folder.mtime).value();
    return row + (folder.error ? errorDigest(folder.id) : 0);
  }
  [[nodiscard]] static std::uint64_t digestOf(const File& file) {
    return RowDigest().add(file.folder).add(file.digest).value();
  }
};

}  // namespace quon
