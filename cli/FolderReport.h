#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include <nlohmann/json.hpp>

#include "CommandLine.h"
#include "Output.h"
#include "RowTable.h"
#include "Session.h"

namespace quon::cli {

// What the commands that list rows of a folder have in common.

/// What a command found in a folder.
struct Listing {
  std::span<const Entry> rows;       ///< at most as many as were asked for
  std::optional<std::size_t> found;  ///< how many there are in all; none when the rows account for all of it
  std::string whenNone;              ///< the line for no rows at all
  std::string footer = {};           ///< a line that follows some
};

/// Prints the listing as a table or a document, with the folder's totals, then what could not be read. A
/// document also gets the members of `more`.
void report(const Command& command, const std::string& path, const OpenedTree& tree, const RowTable& table,
            const Listing& listing, const Json& more = Json::object());
/// The line that ends a list which was cut; "" for one that is whole.
[[nodiscard]] std::string lineForMore(std::size_t found, std::size_t listed);
/// A line with the totals, and an empty one.
[[nodiscard]] std::string heading(const std::string& path, const OpenedTree& tree, const RowTable& table);
/// "3 files, 2 folders, 1.0 MB (1.2 MB on disk)".
[[nodiscard]] std::string totalsOf(const DirNode& folder);
/// A table whose shares are of the folder.
[[nodiscard]] RowTable tableOf(const Session& session, const Command& command, const OpenedTree& tree);

}  // namespace quon::cli
