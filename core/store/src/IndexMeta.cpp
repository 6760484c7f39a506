#include "IndexMeta.h"

#include <charconv>
#include <cmath>
#include <fmt/format.h>
#include <optional>
#include <random>
#include <stdexcept>

#include <nlohmann/json.hpp>

#include "base/ByteJson.h"
#include "database/Database.h"
#include "store/ScanStore.h"

namespace quon {
namespace {

using Json = nlohmann::ordered_json;
/// For reading: an ordered object copies its values when it grows, each with all that is nested in it, by
/// recursion, which a value made for that turns into a stack overflow.
using ParsedJson = nlohmann::json;

/// Milliseconds. So much later than its change an event may come: a link that waits for the disk is in its
/// folder before it is reported.
constexpr std::uint64_t kEventsLag = 10'000;

std::string encodePaths(const std::vector<std::string>& paths) {
  Json array = Json::array();
  for (const std::string& path : paths) array.push_back(encodeBytes(path));
  return array.dump();
}

const std::string& valueOf(const MetaMap& meta, const std::string& key) {
  const auto found = meta.find(key);
  if (found == meta.end()) throw std::invalid_argument(key);
  return found->second;
}

ParsedJson arrayOf(const MetaMap& meta, const std::string& key) {
  ParsedJson array = ParsedJson::parse(valueOf(meta, key), nullptr, /*allow_exceptions=*/false);
  if (!array.is_array()) throw std::invalid_argument(key);
  return array;
}

std::string bytesOf(const ParsedJson& value, const std::string& key) {
  if (!value.is_string()) throw std::invalid_argument(key);
  std::optional<std::string> bytes = decodeBytes(value.get_ref<const std::string&>());
  if (!bytes) throw std::invalid_argument(key);
  return *std::move(bytes);
}

template <typename Number>
Number parsed(const std::string& text, const std::string& key) {
  Number number{};
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) throw std::invalid_argument(key);
  return number;
}

}  // namespace

MetaMap readMeta(Database& database) {
  MetaMap meta;
  Statement rows = database.prepare("SELECT key, value FROM meta");
  while (rows.step()) meta.emplace(rows.text(0), rows.text(1));
  return meta;
}

void writeMeta(Database& database, std::string_view key, std::string_view value) {
  Statement upsert = database.prepare("INSERT OR REPLACE INTO meta (key, value) VALUES (?, ?)");
  upsert.bind(1, key);
  upsert.bind(2, value);
  upsert.run();
}

std::vector<std::pair<std::string, std::string>> metaRows(const ScanFigures& scan, const WalkResult& result) {
  const std::uint64_t completeFrom =
      scan.lastEventId + (static_cast<std::uint64_t>(scan.elapsedMs) + kEventsLag) * 1000;
  std::vector<std::pair<std::string, std::string>> rows{
      {"format", std::to_string(ScanStore::formatVersion)},
      {"root", std::string(scan.rootPath)},
      {"scannedAt", encodeSeconds(scan.scannedAt)},
      {"elapsedMs", std::to_string(scan.elapsedMs)},
      {"errorCount", std::to_string(result.errorCount)},
      {"errorSamples", encodePaths(result.errorSamples)},
      {"hardlinksDeduped", std::to_string(result.hardlinksDeduped)},
      {"linksVersion", "1"},
      {"skippedProtected", encodePaths(result.skippedProtected)},
      {"topFiles", encodeTopFiles(result.topFiles)},
      {"lastEventId", std::to_string(scan.lastEventId)},
      {"rootDev", std::to_string(scan.rootDev)}};
  if (!scan.mountPoint.empty()) rows.emplace_back("mountPoint", scan.mountPoint);
  if (scan.disk.isKnown()) {
    rows.emplace_back("volume", encodeBytes(scan.disk.volume));
    rows.emplace_back("volumeLasts", scan.disk.isForBoot() ? scan.disk.boot : "always");
    rows.emplace_back("rootInode", std::to_string(scan.disk.rootInode));
    rows.emplace_back("rootBorn", std::to_string(scan.disk.rootBorn));
  }
  rows.emplace_back("linksCompleteFrom", std::to_string(completeFrom));
  rows.emplace_back("totals", scan.totals.encode());
  rows.emplace_back("revision", std::to_string(scan.revision));
  rows.emplace_back("complete", "1");
  return rows;
}

std::uint64_t readRevision(Database& database) {
  // An index of an early version has none.
  return static_cast<std::uint64_t>(
      database.number("SELECT CAST(value AS INTEGER) FROM meta WHERE key = 'revision'"));
}

std::uint64_t raiseRevision(Database& database) {
  const std::uint64_t revision = readRevision(database) + 1;
  writeMeta(database, "revision", std::to_string(revision));
  return revision;
}

std::uint64_t freshRevision() {
  std::random_device random;
  // Leaves room to count up.
  constexpr std::uint64_t kMost = (1ULL << 62U) - 1;
  return ((std::uint64_t{random()} << 32U) | random()) & kMost;
}

std::string encodeSeconds(double seconds) {
  return fmt::format("{}", seconds);
}

std::string encodeTopFiles(const std::vector<TopFile>& topFiles) {
  Json array = Json::array();
  for (const TopFile& file : topFiles) {
    array.push_back(
        {{"p", encodeBytes(file.path)}, {"l", file.logical}, {"y", file.physical}, {"m", file.mtime}});
  }
  return array.dump();
}

std::vector<TopFile> decodeTopFiles(const MetaMap& meta) {
  const std::string key = "topFiles";
  std::vector<TopFile> files;
  for (const ParsedJson& item : arrayOf(meta, key)) {
    for (const char* field : {"p", "l", "y", "m"}) {
      if (!item.contains(field)) throw std::invalid_argument(key);
    }
    if (!item["l"].is_number_unsigned() || !item["y"].is_number_unsigned() ||
        !item["m"].is_number_integer()) {
      throw std::invalid_argument(key);
    }
    files.push_back({bytesOf(item["p"], key), item["l"].get<std::uint64_t>(), item["y"].get<std::uint64_t>(),
                     item["m"].get<std::int64_t>()});
  }
  return files;
}

std::vector<std::string> decodePaths(const MetaMap& meta, const std::string& key) {
  std::vector<std::string> paths;
  for (const ParsedJson& item : arrayOf(meta, key)) paths.push_back(bytesOf(item, key));
  return paths;
}

std::uint64_t decodeCount(const MetaMap& meta, const std::string& key) {
  return parsed<std::uint64_t>(valueOf(meta, key), key);
}

double decodeSeconds(const MetaMap& meta, const std::string& key) {
  const auto seconds = parsed<double>(valueOf(meta, key), key);
  // Larger ones do not fit whole seconds, and no calendar shows them.
  constexpr double kMostSeconds = 1e15;
  if (!(std::abs(seconds) <= kMostSeconds)) throw std::invalid_argument(key);
  return seconds;
}

DiskIdentity decodeDisk(const MetaMap& meta) {
  try {
    DiskIdentity disk;
    disk.volume = decodeBytes(valueOf(meta, "volume")).value_or("");
    const std::string lasts = valueOf(meta, "volumeLasts");
    if (lasts != "always") disk.boot = lasts;
    disk.rootInode = decodeCount(meta, "rootInode");
    disk.rootBorn = parsed<std::int64_t>(valueOf(meta, "rootBorn"), "rootBorn");
    return disk;
  } catch (const std::invalid_argument&) {
    return {};
  }
}

std::uint64_t decodeCountOr(const MetaMap& meta, const std::string& key, std::uint64_t fallback) {
  return meta.contains(key) ? decodeCount(meta, key) : fallback;
}

}  // namespace quon
