#pragma once

#include <string>

#include "RecordingSink.h"
#include "scan/Walker.h"
#include "support/ReferenceTree.h"

namespace quon::test {

/// With the device of the root filled in.
[[nodiscard]] Walker::Options optionsFor(const std::string& root, Walker::Options rest = {});

/// Walks and rolls up.
[[nodiscard]] Walker::Result walk(Walker& walker, const std::string& root, unsigned threads);

/// Walks the root and expects each figure of the tree, the largest files, and what the sink was told, to be
/// what the reference makes of it. Returns the root's node.
RefPtr<DirNode> expectWalkMatches(const ReferenceTree& tree, const Walker::Options& options,
                                  unsigned threads);

}  // namespace quon::test
