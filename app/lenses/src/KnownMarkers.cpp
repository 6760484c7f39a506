#include "lenses/KnownMarkers.h"

#include <algorithm>

#include "base/Path.h"
#include "base/PathRange.h"

namespace quon {

bool KnownMarkers::contains(const std::string& folder, std::string_view name) const {
  return beginning(folder, name, 0).has_value();
}

std::optional<std::string> KnownMarkers::beginning(const std::string& folder, std::string_view name,
                                                   std::size_t most) const {
  Marker marker(name, most);
  const MutexLock held(lock);
  if (const auto answers = known.find(folder); answers != known.end()) {
    const auto found = answers->second.find(marker);
    if (found != answers->second.end()) return found->second;
  }
  open.emplace(folder, std::move(marker));
  return std::nullopt;
}

bool KnownMarkers::hasNewQuestions() const {
  const MutexLock held(lock);
  return !open.empty();
}

bool KnownMarkers::findOut(const MarkerFiles& disk, FunctionRef<bool()> cancelled) {
  while (true) {
    std::pair<std::string, Marker> question;
    {
      const MutexLock held(lock);
      if (open.empty()) return true;
      question = std::move(open.extract(open.begin()).value());
      asked = question.first;
    }
    if (cancelled()) return false;  // who asks again repeats the question
    const auto& [folder, marker] = question;
    const auto& [name, most] = marker;
    std::optional<std::string> answer;
    if (most > 0) {
      answer = disk.beginning(folder, name, most);
    } else if (disk.contains(folder, name)) {
      answer = "";
    }
    const MutexLock held(lock);
    if (asked) {
      known[folder].insert_or_assign(marker, std::move(answer));
    } else {
      open.insert(std::move(question));  // the folder changed meanwhile
    }
  }
}

void KnownMarkers::forget(const std::vector<std::string>& changed, const std::vector<std::string>& replaced) {
  const MutexLock held(lock);
  for (const std::string& path : changed) {
    const std::string_view folder = pathPrefix(path);
    if (const auto answers = known.find(folder); answers != known.end()) known.erase(answers);
    if (asked == folder) asked.reset();
  }
  for (const std::string& path : replaced) {
    eraseInside(known, pathPrefix(path));
    if (asked && isInside(*asked, path)) asked.reset();
  }
}

}  // namespace quon
