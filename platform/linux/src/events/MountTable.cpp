#include "MountTable.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <iterator>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace quon {
namespace {

constexpr const char* kTable = "/proc/self/mountinfo";
constexpr std::size_t kMountPointField = 4;
constexpr std::size_t kEscapeBytes = 4;  // a backslash and three octal digits

std::string unescaped(std::string_view text) {
  std::string plain;
  for (std::size_t at = 0; at < text.size(); ++at) {
    int value = 0;
    if (text[at] == '\\' && at + kEscapeBytes <= text.size()) {
      const char* digits = text.data() + at + 1;
      if (std::from_chars(digits, digits + kEscapeBytes - 1, value, 8).ec == std::errc()) {
        plain += static_cast<char>(value);
        at += kEscapeBytes - 1;
        continue;
      }
    }
    plain += text[at];
  }
  return plain;
}

}  // namespace

MountTable::MountTable() : file(::open(kTable, O_RDONLY | O_CLOEXEC)) {
  if (!file.isOpen()) {
    throw std::system_error(errno, std::generic_category(), std::string("cannot open ") + kTable);
  }
  mounts = readTable();
}

std::vector<MountTable::Mount> MountTable::readTable() const {
  std::string text;
  std::array<char, 16384> piece{};
  for (ssize_t bytes = 0;
       (bytes = ::pread(file.get(), piece.data(), piece.size(), static_cast<off_t>(text.size()))) > 0;) {
    text.append(piece.data(), static_cast<std::size_t>(bytes));
  }
  std::vector<Mount> found;
  std::string_view rest = text;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\n'), rest.size() - 1);
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    int number = 0;
    std::from_chars(line.data(), line.data() + line.size(), number);
    for (std::size_t field = 0; field < kMountPointField; ++field) {
      line.remove_prefix(std::min(line.find(' ') + 1, line.size()));
    }
    found.emplace_back(number, unescaped(line.substr(0, line.find(' '))));
  }
  std::ranges::sort(found);
  return found;
}

std::vector<std::string> MountTable::changes() {
  std::vector<Mount> now = readTable();
  std::vector<Mount> differing;
  std::ranges::set_symmetric_difference(mounts, now, std::back_inserter(differing));
  mounts = std::move(now);
  std::vector<std::string> points;
  points.reserve(differing.size());
  for (Mount& mount : differing) points.push_back(std::move(mount.second));
  return points;
}

}  // namespace quon
