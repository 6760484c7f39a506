#pragma once

#include <span>
#include <string>
#include <vector>

#include "CommandLine.h"
#include "Output.h"
#include "RowTable.h"
#include "Session.h"

namespace quon::cli {

// What the commands that list rows of a folder have in common.

/// Prints rows as a document or a table, at most as many as were asked for of so many found, with the
/// folder's totals; then what could not be read. `whenNone` is the line for no rows at all, `footer` one that
/// follows some.
void report(const Command& command, const std::string& path, const OpenedTree& tree,
            std::span<const Entry> rows, std::size_t found, const RowTable& table,
            const std::string& whenNone, const std::string& footer = {});
/// The totals in a line, and an empty one.
[[nodiscard]] std::string heading(const std::string& path, const OpenedTree& tree, const RowTable& table);
/// "3 files, 2 folders, 1.0 MB (1.2 MB on disk)".
[[nodiscard]] std::string totalsOf(const DirNode& folder);
/// A table whose shares are of the folder.
[[nodiscard]] RowTable tableOf(const Session& session, const Command& command, const OpenedTree& tree);

}  // namespace quon::cli
