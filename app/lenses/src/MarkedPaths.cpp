#include "MarkedPaths.h"

namespace quon::Reclaim {
namespace {

/// Calls `each` with the names of an absolute path, "" having none.
template <typename Each>
void forEachName(std::string_view path, Each each) {
  while (!path.empty()) {
    path.remove_prefix(1);
    const std::size_t slash = path.find('/');
    each(path.substr(0, slash));
    path = slash == std::string_view::npos ? std::string_view() : path.substr(slash);
  }
}

}  // namespace

void MarkedPaths::mark(std::string_view path, const Rule& rule) {
  Place place = 0;
  forEachName(path, [&](std::string_view name) {
    const auto [step, isNew] = steps.try_emplace(Step{place, std::string(name)}, rules.size());
    if (isNew) rules.push_back(nullptr);
    place = step->second;
  });
  if (rules[place] == nullptr) rules[place] = &rule;
}

MarkedPaths::Place MarkedPaths::placeOf(std::string_view path) const {
  Place place = 0;
  forEachName(path, [&](std::string_view name) { place = below(place, name); });
  return place;
}

MarkedPaths::Place MarkedPaths::below(Place place, std::string_view name) const {
  if (place == kNowhere) return kNowhere;
  const auto step = steps.find(StepView{place, name});
  return step == steps.end() ? kNowhere : step->second;
}

}  // namespace quon::Reclaim
