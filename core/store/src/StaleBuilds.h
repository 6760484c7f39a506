#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "platform/Files.h"

namespace quon {

/// Removes the builds in the folder of the indexes whose names begin with `prefix` and that no scan has
/// written to for an hour: a younger one may belong to a scan that runs. Bytes that were freed.
/// std::system_error.
std::uint64_t removeStaleBuilds(const FileService& files, const std::string& folder, std::string_view prefix);

}  // namespace quon
