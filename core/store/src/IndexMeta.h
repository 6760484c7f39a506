#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "IndexTotals.h"
#include "platform/DiskIdentity.h"
#include "scan/WalkResult.h"

namespace quon {

class Database;

using MetaMap = std::map<std::string, std::string>;

[[nodiscard]] MetaMap readMeta(Database& database);
/// Replaces the value that the key has.
void writeMeta(Database& database, std::string_view key, std::string_view value);

/// What the metadata of a finished scan says beside its result.
struct ScanFigures {
  std::string_view rootPath;
  std::string_view mountPoint;  ///< of the file system that the root lies on; "" when it is not known
  std::int64_t elapsedMs = 0;
  std::uint64_t lastEventId = 0;
  std::uint32_t rootDev = 0;
  double scannedAt = 0;  ///< seconds since 1970
  DiskIdentity disk;
  IndexTotals totals;
  std::uint64_t revision = 0;
};
/// The metadata as key and value, in the order they are written; "complete" comes last.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> metaRows(const ScanFigures& scan,
                                                                        const WalkResult& result);
[[nodiscard]] std::uint64_t readRevision(Database& database);
/// Returns the new one.
std::uint64_t raiseRevision(Database& database);
/// A revision that no other index has: commits count up from there.
[[nodiscard]] std::uint64_t freshRevision();
/// The shortest text that reads back to the same value.
[[nodiscard]] std::string encodeSeconds(double seconds);

/// The value of "topFiles". Names keep every byte (see base/ByteJson.h).
[[nodiscard]] std::string encodeTopFiles(const std::vector<TopFile>& topFiles);

/// The metadata's figures back. Each throws std::invalid_argument when the value is absent or unparsable.
[[nodiscard]] std::vector<TopFile> decodeTopFiles(const MetaMap& meta);
[[nodiscard]] std::vector<std::string> decodePaths(const MetaMap& meta, const std::string& key);
[[nodiscard]] std::uint64_t decodeCount(const MetaMap& meta, const std::string& key);
[[nodiscard]] double decodeSeconds(const MetaMap& meta, const std::string& key);
/// Unknown when the values are absent, or cannot have been written.
[[nodiscard]] DiskIdentity decodeDisk(const MetaMap& meta);
/// `fallback` when the value is absent.
[[nodiscard]] std::uint64_t decodeCountOr(const MetaMap& meta, const std::string& key,
                                          std::uint64_t fallback);

}  // namespace quon
