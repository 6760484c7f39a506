#pragma once

#include <string>

#include "base/RefPtr.h"
#include "scan/DirNode.h"

namespace quon::test {

/// Compares two indexes of one folder, row by row, by paths instead of ids, through plain SQLite. Which name
/// of a multiply-linked file has its size depends on the order of the listing; that exactly one has it, and
/// which size, does not. "" when they agree, else the differences.
enum class SoleNames {
  asStored,
  alike,  ///< a multiply-linked file of which one name is known may stand as any other file
};
[[nodiscard]] std::string differences(const std::string& patchedIndex, const std::string& freshIndex,
                                      SoleNames soleNames = SoleNames::asStored);

/// Compares a tree with another, node by node and figure by figure, whatever the order of children and files.
/// Names of roots are compared as well. "" when they agree.
[[nodiscard]] std::string differences(const DirNode& tree, const DirNode& expected);

}  // namespace quon::test
