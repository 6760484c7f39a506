#include "model/Problem.h"

#include <algorithm>
#include <utility>

namespace quon {

void Problems::raise(Problem::Kind kind, std::string text) {
  std::vector<Problem> standing = _problems.get();
  std::erase_if(standing, [kind](const Problem& each) { return each.kind == kind; });
  standing.push_back({kind, std::move(text)});
  std::ranges::stable_sort(standing, {}, &Problem::kind);
  _problems.set(std::move(standing));
}

void Problems::clear(Problem::Kind kind) {
  std::vector<Problem> standing = _problems.get();
  std::erase_if(standing, [kind](const Problem& each) { return each.kind == kind; });
  _problems.set(std::move(standing));
}

std::string Problems::problem(Problem::Kind kind) const {
  const auto found = std::ranges::find(_problems.get(), kind, &Problem::kind);
  return found == _problems.get().end() ? std::string() : found->text;
}

}  // namespace quon
