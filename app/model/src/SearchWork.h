#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include "model/LatestJob.h"
#include "search/TreeSearch.h"

namespace quon {

/// A search of the shown tree for the text, as the model stands now: below the scope, or the whole tree. Finds
/// nothing for a text that asks for nothing.
[[nodiscard]] LatestJob<SearchHits>::Work searchWork(const ModelState& state, std::string text, bool ofScope,
                                                     std::size_t cap);

}  // namespace quon
