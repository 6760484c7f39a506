#pragma once

#include <string>

#include "base/RefPtr.h"
#include "scan/DirNode.h"

namespace quon::test {

/// Holds two indexes of one folder against each other, row by row, by paths instead of ids, through plain
/// SQLite. Which name of a multiply-linked file carries its size is up to the order of the listing; that
/// exactly one does, and with which size, is not. "" when they agree, else the differences.
enum class SoleNames {
  asStored,
  alike,  ///< a multiply-linked file of which one name is known may stand as any other file
};
[[nodiscard]] std::string differences(const std::string& patchedIndex, const std::string& freshIndex,
                                      SoleNames soleNames = SoleNames::asStored);

/// Holds a tree against another, node by node and figure by figure, whatever the order of children and files.
/// Names of roots are compared as well. "" when they agree.
[[nodiscard]] std::string differences(const DirNode& tree, const DirNode& expected);

}  // namespace quon::test
