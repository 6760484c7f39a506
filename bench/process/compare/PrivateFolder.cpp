#include "compare/PrivateFolder.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fmt/format.h>
#include <string_view>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "shared/FileDescriptor.h"
#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

using namespace std::string_view_literals;

constexpr std::array<std::pair<std::string_view, std::string_view>, 4> baseVariables{{
    {"XDG_DATA_HOME="sv, "data"sv},
    {"XDG_STATE_HOME="sv, "state"sv},
    {"XDG_CONFIG_HOME="sv, "config"sv},
    {"XDG_CACHE_HOME="sv, "cache"sv},
}};

}  // namespace

PrivateFolder::PrivateFolder() {
  const char* chosen = std::getenv("TMPDIR");  // NOLINT(concurrency-mt-unsafe): this program has one thread
  std::string name =
      std::filesystem::path(chosen != nullptr && *chosen != '\0' ? chosen : "/var/tmp") / "quonbench-XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) throw SystemFailure("making", name, errno);
  location = std::filesystem::absolute(name);
}

PrivateFolder::~PrivateFolder() {
  std::error_code error;
  std::filesystem::remove_all(location, error);
  if (error)
    fmt::print(stderr, "quon-compare: \"{}\" stays behind: {}\n", location.string(), error.message());
}

std::vector<std::string> PrivateFolder::environment() const {
  std::vector<std::string> result;
  for (char** variable = environ; *variable != nullptr; ++variable) {
    const std::string_view text(*variable);
    const bool replaced =
        std::ranges::any_of(baseVariables, [&](const auto& base) { return text.starts_with(base.first); });
    if (!replaced) result.emplace_back(text);
  }
  for (const auto& [variable, folder] : baseVariables) {
    result.push_back(std::string(variable) + (location / folder).string());
  }
  return result;
}

std::vector<std::filesystem::path> PrivateFolder::baseFolders() const {
  std::vector<std::filesystem::path> result;
  result.reserve(baseVariables.size());
  for (const auto& base : baseVariables) result.push_back(location / base.second);
  return result;
}

void PrivateFolder::settle() const {
  const FileDescriptor folder(::open(location.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!folder || ::syncfs(folder.get()) != 0) throw SystemFailure("syncing", location.string(), errno);
}

}  // namespace quon::bench
