#include "compare/MachineFacts.h"

#include <cerrno>
#include <fcntl.h>
#include <fmt/format.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <sys/sysinfo.h>
#include <sys/utsname.h>
#include <unistd.h>

#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

constexpr const char* mountTable = "/proc/self/mountinfo";

/// A line is `ID parent device root place options [tags...] - type source options`.
[[nodiscard]] std::string fileSystemOf(const std::filesystem::path& tree) {
  struct statx facts;
  if (::statx(AT_FDCWD, tree.c_str(), AT_NO_AUTOMOUNT, STATX_MNT_ID, &facts) != 0) {
    throw SystemFailure("statx of", tree.string(), errno);
  }
  std::ifstream table(mountTable);
  for (std::string line; std::getline(table, line);) {
    std::istringstream words(line);
    std::uint64_t mount = 0;
    if (!(words >> mount) || mount != facts.stx_mnt_id) continue;
    std::string word;
    while (words >> word && word != "-") continue;
    if (words >> word) return word;
  }
  throw std::runtime_error(fmt::format("{} does not list the mount that contains the tree", mountTable));
}

}  // namespace

MachineFacts readMachineFacts(const std::filesystem::path& tree) {
  utsname names{};
  struct sysinfo memory {};
  if (::uname(&names) != 0) throw SystemFailure("reading", "the kernel's name", errno);
  if (::sysinfo(&memory) != 0) throw SystemFailure("reading", "the size of the memory", errno);
  return {.cores = ::sysconf(_SC_NPROCESSORS_ONLN),
          .memoryBytes = std::uint64_t{memory.totalram} * memory.mem_unit,
          .kernel = fmt::format("{} {}", names.sysname, names.release),
          .fileSystem = fileSystemOf(tree)};
}

}  // namespace quon::bench
