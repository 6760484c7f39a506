#pragma once

namespace quon {

// Statements that both a scan and a patch write rows with.

inline constexpr const char* kInsertDir = "INSERT INTO dirs (parent, name, mtime) VALUES (?, ?, ?)";
inline constexpr const char* kInsertLink =
    "INSERT OR REPLACE INTO links (fileid, dir, name, counted) VALUES (?, ?, ?, ?)";
inline constexpr const char* kMarkError = "UPDATE dirs SET error = 1 WHERE id = ?";

}  // namespace quon
