#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lenses/Reclaim.h"

namespace quon::Reclaim {

/// Paths with a rule each, as a tree of names beside the scan tree: a walk goes down both at once, so that
/// a query costs nothing away from the marked paths and one look-up on the way to them. Paths are compared
/// name by name as they are written: one with "//" or ".." matches no folder.
class MarkedPaths {
 public:
  /// A marked path or one that leads to some.
  using Place = std::size_t;
  static constexpr Place kNowhere = static_cast<Place>(-1);

  /// The first rule of a path stays.
  void mark(std::string_view path, const Rule& rule);
  [[nodiscard]] Place placeOf(std::string_view path) const;
  [[nodiscard]] Place below(Place place, std::string_view name) const;
  /// None at a place that is only on the way, or nowhere.
  [[nodiscard]] const Rule* rule(Place place) const { return place == kNowhere ? nullptr : rules[place]; }

 private:
  struct StepView {
    Place from;
    std::string_view name;
    friend bool operator==(const StepView&, const StepView&) = default;
  };
  struct Step {
    Place from;
    std::string name;
    operator StepView() const { return {from, name}; }  // NOLINT(google-explicit-constructor): a view of it
  };
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(const StepView& step) const {
      return std::hash<std::string_view>()(step.name) + step.from * 0x9e3779b97f4a7c15U;
    }
  };
  struct Equal {
    using is_transparent = void;
    bool operator()(const StepView& a, const StepView& b) const { return a == b; }
  };

  std::unordered_map<Step, Place, Hash, Equal> steps;
  std::vector<const Rule*> rules{nullptr};  // by place; the first is the file system's root
};

}  // namespace quon::Reclaim
