#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quon {

/// What a widget shows of the disk: written by the program, read by the widget. Texts are fit to be shown; sizes are
/// bytes.
struct QuonSnapshot {
  struct Item {
    std::string name;
    std::int64_t size = 0;

    friend bool operator==(const Item&, const Item&) = default;
  };
  struct Area {
    std::string name;
    std::int64_t total = 0;
    std::vector<Item> topFolders;
    std::vector<Item> topKinds;

    friend bool operator==(const Area&, const Area&) = default;
  };

  double generatedAt = 0;  ///< seconds since 2001-01-01 00:00:00 UTC
  std::string volumeName;
  double usedFraction = 0;  ///< 0 to 1
  std::int64_t used = 0;
  std::int64_t free = 0;
  std::int64_t total = 0;
  std::vector<Item> topFolders;  ///< directly below the root, largest first
  std::vector<Item> topKinds;    ///< of the whole scan
  std::vector<Area> areas;       ///< the largest of those folders
  std::string rootName;

  /// 2001-01-01 00:00:00 UTC in seconds since 1970.
  static constexpr std::int64_t kEpoch = 978'307'200;

  /// One JSON object with the fields' names as keys, in their order.
  [[nodiscard]] std::string encoded() const;
  /// None for a text that is not such an object. Further keys are ignored.
  [[nodiscard]] static std::optional<QuonSnapshot> decoded(std::string_view json);

  friend bool operator==(const QuonSnapshot&, const QuonSnapshot&) = default;
};

}  // namespace quon
