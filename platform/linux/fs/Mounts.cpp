#include "linux_fs/Mounts.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <fcntl.h>
#include <string_view>
#include <system_error>
#include <unistd.h>

namespace quon {
namespace {

constexpr const char* kTable = "/proc/self/mountinfo";
constexpr std::size_t kEscapeBytes = 4;  // a backslash and three octal digits
constexpr std::size_t kPieceBytes = 16384;

[[noreturn]] void raise(const char* operation) {
  throw std::system_error(errno, std::generic_category(), std::string(operation) + " " + kTable);
}

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

std::string_view takeField(std::string_view& line) {
  const std::string_view field = line.substr(0, line.find(' '));
  line.remove_prefix(std::min(field.size() + 1, line.size()));
  return field;
}

std::string readAll(const Descriptor& table) {
  std::string text;
  std::array<char, kPieceBytes> piece{};
  ssize_t bytes = 0;
  while ((bytes = ::pread(table.get(), piece.data(), piece.size(), static_cast<off_t>(text.size()))) > 0) {
    text.append(piece.data(), static_cast<std::size_t>(bytes));
  }
  if (bytes < 0) raise("cannot read");
  return text;
}

}  // namespace

Descriptor openMounts() {
  Descriptor table(::open(kTable, O_RDONLY | O_CLOEXEC));
  if (!table.isOpen()) raise("cannot open");
  return table;
}

std::vector<Mount> readMounts(const Descriptor& table) {
  const std::string text = readAll(table);
  std::vector<Mount> mounts;
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t end = std::min(rest.find('\n'), rest.size() - 1);
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end + 1);
    Mount& mount = mounts.emplace_back();
    std::from_chars(line.data(), line.data() + line.size(), mount.id);
    (void)takeField(line);  // the id
    (void)takeField(line);  // of the mount above
    mount.device = takeField(line);
    (void)takeField(line);  // what of the file system is mounted
    mount.point = unescaped(takeField(line));
    // Options, of which there may be any number, up to a lone "-".
    for (std::string_view field = takeField(line); !line.empty() && field != "-";) field = takeField(line);
    mount.type = unescaped(takeField(line));
    mount.source = unescaped(takeField(line));
  }
  return mounts;
}

}  // namespace quon
