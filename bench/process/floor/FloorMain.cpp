// quon-floor: the time below which no walk by getdents64 and statx can come, to compare other walks with.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <fmt/format.h>
#include <string>
#include <sys/resource.h>
#include <unistd.h>

#include "floor/FloorWalk.h"
#include "shared/CommandLine.h"
#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

constexpr unsigned leastDefaultThreads = 4;
constexpr unsigned mostThreads = 1024;

[[nodiscard]] unsigned defaultThreads() {
  const long active = ::sysconf(_SC_NPROCESSORS_ONLN);
  return std::clamp(active < 0 ? 0U : static_cast<unsigned>(active), leastDefaultThreads, mostThreads);
}

struct Arguments {
  std::string directory;
  unsigned threads = defaultThreads();
};

/// Parents stay open while their children wait, so a deep tree with many threads asks for more than the usual
/// 1,024.
void allowManyDescriptors() {
  rlimit limit{};
  if (::getrlimit(RLIMIT_NOFILE, &limit) != 0)
    throw SystemFailure("reading the limit of", "open files", errno);
  limit.rlim_cur = limit.rlim_max;
  if (::setrlimit(RLIMIT_NOFILE, &limit) != 0)
    throw SystemFailure("raising the limit of", "open files", errno);
}

[[nodiscard]] int measureFloor(const Arguments& arguments) {
  allowManyDescriptors();
  const auto start = std::chrono::steady_clock::now();
  const FloorSums sums = walkFloor(arguments.directory, arguments.threads);
  const std::chrono::duration<double, std::milli> taken = std::chrono::steady_clock::now() - start;
  fmt::print("files={} folders={} logical={} physical={} failures={} threads={} milliseconds={:.1f}\n",
             sums.files, sums.folders, sums.logical, sums.physical, sums.failures, arguments.threads,
             taken.count());
  if (sums.failures == 0) return exitDone;
  fmt::print(stderr, "quon-floor: {} entries could not be read, the first: {}\n", sums.failures,
             sums.firstFailure);
  return exitFailed;
}

void defineOptions(CLI::App& app, Arguments& arguments) {
  app.add_option("DIR", arguments.directory, "the folder to walk; other devices below it are left out")
      ->required();
  app.add_option("--threads", arguments.threads, "threads that walk")
      ->capture_default_str()
      ->check(CLI::Range(1U, mostThreads));
}

}  // namespace
}  // namespace quon::bench

int main(int argc, char** argv) {
  using namespace quon::bench;
  return runCommand<Arguments>(
      {"quon-floor",
       "Walks a folder with getdents64 and one statx an entry, keeps nothing, and prints sums and time.",
       argc, argv},
      defineOptions, measureFloor);
}
