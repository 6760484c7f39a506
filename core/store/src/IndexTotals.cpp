#include "IndexTotals.h"

#include <array>
#include <charconv>
#include <fmt/format.h>

namespace quon {

void IndexTotals::add(const IndexTotals& other) {
  folders += other.folders;
  files += other.files;
  logical += other.logical;
  physical += other.physical;
  digest += other.digest;
}

std::string IndexTotals::encode() const {
  return fmt::format("{} {} {} {} {}", folders, files, logical, physical, digest);
}

std::optional<IndexTotals> IndexTotals::decode(std::string_view text) {
  IndexTotals totals;
  const std::array<std::uint64_t*, 5> fields{&totals.folders, &totals.files, &totals.logical,
                                             &totals.physical, &totals.digest};
  const char* at = text.data();
  const char* const end = at + text.size();
  for (std::uint64_t* const field : fields) {
    if (field != fields.front() && (at == end || *at++ != ' ')) return std::nullopt;
    const auto [next, error] = std::from_chars(at, end, *field);
    if (error != std::errc()) return std::nullopt;
    at = next;
  }
  return at == end ? std::optional(totals) : std::nullopt;
}

}  // namespace quon
