#pragma once

#include <string>
#include <vector>

namespace quon::test {

/// Runs the commands, up to the first that fails, with the arguments as "$1" and so on. False when one failed;
/// what they print is the test's. Threads: main only, while no other thread runs.
[[nodiscard]] bool shell(const std::string& commands, const std::vector<std::string>& arguments);

}  // namespace quon::test
