#include "SearchWork.h"

#include <utility>

#include "base/Path.h"
#include "search/TokenQuery.h"

namespace quon {
namespace {

/// The kind's id: what the file's content showed comes first.
std::string_view kindOf(const ShownTree& tree, const DirNode& folder, std::string_view name) {
  if (!tree.kindOverrides.empty()) {
    const auto found = tree.kindOverrides.find(joinPath(folder.path(tree.root.prefix()), name));
    if (found != tree.kindOverrides.end()) return found->second->id;
  }
  return Kinds::of(name).id;
}

}  // namespace

LatestJob<SearchHits>::Work searchWork(const ModelState& state, std::string text, bool ofScope,
                                       std::size_t cap) {
  const ShownTreeRef& tree = state.shownTree();
  return [tree, text = std::move(text), below = ofScope ? state.scopePath() : tree->root.path(),
          metric = state._metric.get(), now = state.services.now(),
          cap](const IsVoid& isVoid) -> std::optional<SearchHits> {
    const TokenQuery query = TokenQuery::parse(text, now);
    const RefPtr<DirNode> top = tree->folderAt(below);
    if (query.isEmpty() || !top) return SearchHits();
    return search(
        query, top, tree->root.prefix(), metric,
        [&](const DirNode& folder, std::string_view name) { return kindOf(*tree, folder, name); }, isVoid,
        cap);
  };
}

}  // namespace quon
