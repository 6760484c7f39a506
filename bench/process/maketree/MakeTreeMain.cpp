// quon-maketree: fills an empty folder with a tree of files as a home or a system disk has them. The same
// seed gives the same names, sizes, times and hard links on every machine.

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <string>

#include "maketree/TreePlan.h"
#include "maketree/TreeWriter.h"
#include "shared/CommandLine.h"
#include "shared/SystemFailure.h"

namespace quon::bench {
namespace {

struct Arguments {
  std::string directory;
  std::uint32_t files = 0;
  std::uint32_t folders = 0;
  std::uint64_t seed = 0;
};

/// Makes the folder when it does not exist; throws when it is not empty.
[[nodiscard]] FileDescriptor openEmptyFolder(const std::string& directory) {
  std::filesystem::create_directories(directory);
  if (!std::filesystem::is_empty(directory)) {
    throw std::runtime_error(fmt::format("\"{}\" is not empty; nothing was made", directory));
  }
  FileDescriptor opened(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!opened) throw SystemFailure("opening", directory, errno);
  return opened;
}

[[nodiscard]] int makeTree(const Arguments& arguments) {
  const FileDescriptor root = openEmptyFolder(arguments.directory);
  const auto start = std::chrono::steady_clock::now();
  Random random(arguments.seed);
  const TreePlan plan = planTree(arguments.files, arguments.folders, random);
  TreeWriter writer(plan, random);
  writer.write(root.get());
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  fmt::print("files={} folders={} hardlinks={} seed={} seconds={:.1f}\n", arguments.files, arguments.folders,
             writer.secondNames(), arguments.seed, taken.count());
  return exitDone;
}

void defineOptions(CLI::App& app, Arguments& arguments) {
  const CLI::Range counts(std::uint32_t{0}, TreePlan::greatestCount);
  app.add_option("DIR", arguments.directory, "the folder to fill; made when missing, refused unless empty")
      ->required();
  app.add_option("--files", arguments.files, "names of files, second names of hard links included")
      ->required()
      ->check(counts);
  app.add_option("--folders", arguments.folders, "folders below DIR")->required()->check(counts);
  app.add_option("--seed", arguments.seed, "the same seed makes the same tree")->required();
}

}  // namespace
}  // namespace quon::bench

int main(int argc, char** argv) {
  using namespace quon::bench;
  return runCommand<Arguments>(
      {"quon-maketree", "Fills an empty folder with a seeded tree of sparse files.", argc, argv},
      defineOptions, makeTree);
}
