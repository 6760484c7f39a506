#pragma once

#include <span>
#include <string>

#include "CommandLine.h"
#include "Output.h"
#include "RowTable.h"
#include "Session.h"

namespace quon::cli {

// What the commands that list rows of a folder have in common.

/// The totals of the folder at the path, and the rows.
[[nodiscard]] Json folderDocument(const Command& command, const std::string& path, const OpenedTree& tree,
                                  std::span<const Entry> rows);
/// The totals in a line, and an empty one.
[[nodiscard]] std::string heading(const std::string& path, const OpenedTree& tree);
/// A table whose shares are of the folder.
[[nodiscard]] RowTable tableOf(const Session& session, const Command& command, const OpenedTree& tree);

}  // namespace quon::cli
