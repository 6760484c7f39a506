#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "scan/WalkResult.h"

namespace quon {

using MetaMap = std::map<std::string, std::string>;

/// The metadata of a finished scan as key and value, in the order they are written; "complete" comes last.
/// `scannedAt` is seconds since 1970.
[[nodiscard]] std::vector<std::pair<std::string, std::string>> metaRows(
    std::string_view rootPath, std::int64_t elapsedMs, const WalkResult& result, std::uint64_t lastEventId,
    std::uint32_t rootDev, double scannedAt);

/// The value of "topFiles". Names keep every byte (see base/ByteJson.h).
[[nodiscard]] std::string encodeTopFiles(const std::vector<TopFile>& topFiles);

/// The metadata's figures back. Each throws std::invalid_argument when the value is absent or unparsable.
[[nodiscard]] std::vector<TopFile> decodeTopFiles(const MetaMap& meta);
[[nodiscard]] std::vector<std::string> decodePaths(const MetaMap& meta, const std::string& key);
[[nodiscard]] std::uint64_t decodeCount(const MetaMap& meta, const std::string& key);
[[nodiscard]] double decodeSeconds(const MetaMap& meta, const std::string& key);
/// `fallback` when the value is absent.
[[nodiscard]] std::uint64_t decodeCountOr(const MetaMap& meta, const std::string& key,
                                          std::uint64_t fallback);

}  // namespace quon
