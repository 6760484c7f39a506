#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "rows/Entry.h"

namespace quon::cli {

using Json = nlohmann::ordered_json;

/// Rows of folders and files as JSON. Names and paths keep every byte (see base/ByteJson.h).
[[nodiscard]] Json toJson(std::span<const Entry> rows);
[[nodiscard]] Json toJson(const std::vector<std::string>& paths);

/// Writes the document and a line break to standard output.
void printDocument(const Json& document);
void print(std::string_view text);

/// "1 file", "2,000 files".
[[nodiscard]] std::string counted(std::uint64_t count, std::string_view noun);
/// Seconds since 1970.
[[nodiscard]] std::int64_t now();
/// The local date and minute of a time in seconds since 1970.
[[nodiscard]] std::string localTime(double secondsSince1970);
[[nodiscard]] const char* nameOf(Metric metric);

/// False, after one line on standard error, when standard output did not take everything.
[[nodiscard]] bool flushOutput();

}  // namespace quon::cli
