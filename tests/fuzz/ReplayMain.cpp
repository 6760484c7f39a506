// Runs a fuzz target over the files of the folders named on the command line, once each.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>

#include "support/RawIndex.h"

// NOLINTNEXTLINE(readability-identifier-naming): libFuzzer's name for it
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

int main(int count, char** arguments) {
  std::size_t replayed = 0;
  try {
    for (int at = 1; at < count; ++at) {
      for (const auto& entry : std::filesystem::directory_iterator(arguments[at])) {
        std::printf("%s\n", entry.path().c_str());
        std::fflush(stdout);
        const std::string bytes = quon::test::readBytes(entry.path());
        (void)LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
        ++replayed;
      }
    }
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "%s\n", failure.what());
    return 1;
  }
  std::printf("%zu inputs\n", replayed);
  return replayed == 0 ? 1 : 0;
}
