#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "base/RefPtr.h"
#include "scan/DirNode.h"
#include "scan/FileEntry.h"

namespace quon {

/// Which of the two sizes is shown, sorted by and totalled.
enum class Metric : std::uint8_t {
  logical,   ///< apparent length
  physical,  ///< allocated on disk
};

inline constexpr std::array<Metric, 2> kMetrics{Metric::logical, Metric::physical};

/// The text that stands for the metric wherever it is stored or typed.
[[nodiscard]] constexpr std::string_view rawTextOf(Metric metric) {
  return metric == Metric::logical ? "logical" : "physical";
}

/// None for a text that stands for no metric.
[[nodiscard]] constexpr std::optional<Metric> metricOf(std::string_view rawText) {
  for (const Metric metric : kMetrics) {
    if (rawTextOf(metric) == rawText) return metric;
  }
  return std::nullopt;
}

/// One row of any list: a folder, a file with the folder that contains it, or everything that is not listed.
struct Entry {
  struct File {
    FileEntry file;
    RefPtr<DirNode> container;

    friend bool operator==(const File&, const File&) = default;
  };
  struct Rest {
    friend bool operator==(const Rest&, const Rest&) = default;
  };
  using Payload = std::variant<RefPtr<DirNode>, File, Rest>;

  /// The name of the row for what is not listed.
  static constexpr const char* kRestName = "smaller items";

  Payload payload;
  std::string name;
  std::uint64_t logical = 0;
  std::uint64_t physical = 0;
  std::string id;  ///< unique within a listing: "d:", "f:" or "r:" + full path

  [[nodiscard]] std::uint64_t size(Metric metric) const;
  /// The full path behind the row; for the rest, the folder whose rest it is.
  [[nodiscard]] std::string path() const { return id.substr(2); }
  /// Modification time of a folder or file; 0, for unknown, of the rest.
  [[nodiscard]] std::int64_t mtime() const;

  /// `folderPath` is the full path of the folder itself, or of the one that contains the file.
  [[nodiscard]] static Entry ofFolder(const RefPtr<DirNode>& node, std::string_view folderPath);
  [[nodiscard]] static Entry ofFile(const FileEntry& file, const RefPtr<DirNode>& container,
                                    std::string_view containerPath);

  friend bool operator==(const Entry&, const Entry&) = default;
};

}  // namespace quon

/// Equal rows have equal ids.
template <>
struct std::hash<quon::Entry> {
  [[nodiscard]] std::size_t operator()(const quon::Entry& entry) const noexcept {
    return std::hash<std::string>()(entry.id);
  }
};
