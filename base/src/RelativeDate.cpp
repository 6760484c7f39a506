#include "base/RelativeDate.h"

#include <array>
#include <fmt/format.h>

namespace quon {
namespace {

struct Unit {
  std::int64_t seconds;
  const char* name;
  const char* last;  ///< for exactly one
};
constexpr std::array<Unit, 6> kUnits{{{31'536'000, "years", "last year"},
                                      {2'592'000, "months", "last month"},
                                      {604'800, "weeks", "last week"},
                                      {86'400, "days", "yesterday"},
                                      {3'600, "hours", "1 hour ago"},
                                      {60, "minutes", "1 minute ago"}}};

}  // namespace

std::string relativeDate(std::int64_t time, std::int64_t now) {
  if (time >= now) return "now";
  // Both may lie anywhere in 64 bits.
  const std::uint64_t age = static_cast<std::uint64_t>(now) - static_cast<std::uint64_t>(time);
  for (const Unit& unit : kUnits) {
    const std::uint64_t count = age / static_cast<std::uint64_t>(unit.seconds);
    if (count == 1) return unit.last;
    if (count > 1) return fmt::format("{} {} ago", count, unit.name);
  }
  return age == 1 ? "1 second ago" : fmt::format("{} seconds ago", age);
}

}  // namespace quon
