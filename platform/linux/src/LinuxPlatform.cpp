#include "platform_linux/LinuxPlatform.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <malloc.h>
#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

#include "base/Path.h"
#include "linux_fs/LinuxDirectories.h"
#include "linux_fs/LinuxFiles.h"
#include "platform_linux/LinuxThreads.h"

namespace quon {
namespace {

/// The variable's value when it is an absolute path, without trailing slashes; else the fallback.
std::string absoluteFromEnvironment(const char* variable, const std::string& fallback) {
  const char* value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): main, before any thread
  if (value == nullptr || *value != '/') return fallback;
  return withoutTrailingSlashes(value);
}

std::string homeFromUserDatabase() {
  std::array<char, 4096> space{};
  passwd record{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &record, space.data(), space.size(), &found) != 0 || found == nullptr) return "/";
  return withoutTrailingSlashes(found->pw_dir);
}

}  // namespace

struct LinuxPlatform::Services {
  LinuxDirectories directories;
  LinuxFiles files;
  LinuxThreads threads;
  Platform platform{directories, files, threads};
};

LinuxPlatform::LinuxPlatform() : owned(std::make_unique<Services>()) {}
LinuxPlatform::~LinuxPlatform() = default;

const Platform& LinuxPlatform::services() const {
  return owned->platform;
}

Folders LinuxPlatform::folders() {
  Folders found;
  found.home = absoluteFromEnvironment("HOME", homeFromUserDatabase());
  const auto ofUser = [&](const char* variable, const char* usual) {
    return absoluteFromEnvironment(variable, joinPath(pathPrefix(found.home), usual));
  };
  const auto own = [](const std::string& folder) { return joinPath(pathPrefix(folder), "quon"); };
  found.cacheHome = ofUser("XDG_CACHE_HOME", ".cache");
  found.configHome = ofUser("XDG_CONFIG_HOME", ".config");
  found.dataHome = ofUser("XDG_DATA_HOME", ".local/share");
  found.userID = ::getuid();
  found.data = own(found.dataHome);
  found.config = own(found.configHome);
  found.state = own(ofUser("XDG_STATE_HOME", ".local/state"));
  return found;
}

void LinuxPlatform::dropRelativeFolders() {
  for (const char* variable : {"XDG_DATA_HOME", "XDG_CONFIG_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"}) {
    const char* const value = std::getenv(variable);  // NOLINT(concurrency-mt-unsafe): main, before any thread
    if (value != nullptr && *value != '/') ::unsetenv(variable);  // NOLINT(concurrency-mt-unsafe): likewise
  }
}

void LinuxPlatform::raiseOpenFileLimit() {
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  // A refusal leaves the limit as it was, which is enough for a walk.
  (void)setrlimit(RLIMIT_NOFILE, &limit);
}

void LinuxPlatform::returnFreedMemory() {
  // By default both grow with what is freed, and each thread's arena keeps as much: a third of a scan's peak.
  constexpr int kLargeBlock = 128 * 1024;
  constexpr int kKept = 1024 * 1024;
  // Called before there is a second thread.
  (void)::mallopt(M_MMAP_THRESHOLD, kLargeBlock);  // NOLINT(concurrency-mt-unsafe)
  (void)::mallopt(M_TRIM_THRESHOLD, kKept);        // NOLINT(concurrency-mt-unsafe)
}

void LinuxPlatform::ignoreFileSizeSignal() {
  (void)std::signal(SIGXFSZ, SIG_IGN);
}

}  // namespace quon
