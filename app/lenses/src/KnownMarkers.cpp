#include "lenses/KnownMarkers.h"

#include <utility>

namespace quon {

bool KnownMarkers::contains(const std::string& folder, std::string_view name) const {
  return beginning(folder, name, 0).has_value();
}

std::optional<std::string> KnownMarkers::beginning(const std::string& folder, std::string_view name,
                                                   std::size_t most) const {
  Question question(folder, name, most);
  const auto found = known.find(question);
  if (found != known.end()) return found->second;
  open.push_back(std::move(question));
  return std::nullopt;
}

bool KnownMarkers::findOut(FunctionRef<bool()> cancelled) {
  for (Question& question : std::exchange(open, {})) {
    if (cancelled()) return false;
    const auto& [folder, name, most] = question;
    std::optional<std::string> answer;
    if (most > 0) {
      answer = disk.beginning(folder, name, most);
    } else if (disk.contains(folder, name)) {
      answer = "";
    }
    known.insert_or_assign(std::move(question), std::move(answer));
  }
  return true;
}

}  // namespace quon
