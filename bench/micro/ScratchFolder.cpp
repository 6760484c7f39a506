#include "ScratchFolder.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace quon::bench {
namespace {

std::string makeFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "quon-bench-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::system_error(errno, std::generic_category(), pattern);
  return pattern;
}

}  // namespace

ScratchFolder::ScratchFolder() : path(makeFolder()) {}

ScratchFolder::~ScratchFolder() {
  std::error_code error;
  std::filesystem::remove_all(path, error);
  if (error) std::fprintf(stderr, "cannot remove %s: %s\n", path.c_str(), error.message().c_str());
}

std::string ScratchFolder::at(std::string_view name) const {
  return path + "/" + std::string(name);
}

}  // namespace quon::bench
