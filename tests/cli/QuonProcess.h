#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/types.h>
#include <vector>

#include <nlohmann/json.hpp>

#include "linux_fs/Descriptor.h"
#include "support/TempFolder.h"

namespace quon::test {

using Json = nlohmann::ordered_json;
using Arguments = std::vector<std::string>;

/// How the program ended.
struct Finished {
  int status = -1;  ///< as a shell reports it: 128 + the number of a signal that ended it
  std::string out;
  std::string err;

  /// Standard output as the one JSON document that it must be; throws when it is anything else.
  [[nodiscard]] Json document() const { return Json::parse(out); }
};

/// The program while it runs. Killed by the destructor unless it was waited for.
class Running {
 public:
  Running(pid_t child, Descriptor output, Descriptor errors);
  ~Running();
  Running(const Running&) = delete;
  Running& operator=(const Running&) = delete;

  void signal(int number) const;
  [[nodiscard]] pid_t id() const { return pid; }
  /// At this moment, without waiting.
  [[nodiscard]] bool hasEnded();
  /// Stops the process as a whole; false when it ended instead.
  [[nodiscard]] bool pause();
  Finished wait();

 private:
  const pid_t pid;
  const Descriptor out;
  const Descriptor err;
  int ended = -1;  // the status as waitpid gives it, once there is one
};

/// A private folder with a home, with the folders of the XDG variables, with a folder "tree" to scan, and
/// with the program run in it.
class Quon {
 public:
  Quon();

  const TempFolder folder;
  const std::string tree;
  const std::string home;
  std::map<std::string, std::string> environment;
  std::string workingFolder;
  std::map<int, rlim_t> limits;  ///< by RLIMIT_ number
  bool ignoresHangups = false;   ///< as under nohup
  uid_t user = 0;                ///< whom to run it as, when the test runs as root
  Arguments runUnder;            ///< another program with its arguments, found in PATH
  std::string output;            ///< the file that takes standard output, when it is to be another than ours

  [[nodiscard]] Running start(const Arguments& arguments) const;
  [[nodiscard]] Finished run(const Arguments& arguments) const { return start(arguments).wait(); }
  /// The document of a run that must succeed.
  [[nodiscard]] Json document(Arguments arguments) const;
  /// Starts the program on a new terminal of that width, whose other end `terminal` becomes. Nothing is
  /// captured.
  [[nodiscard]] Running startOnTerminal(const Arguments& arguments, std::uint16_t columns,
                                        Descriptor& terminal) const;

  [[nodiscard]] std::string indexFolder() const;
  /// The names in the folder of the indexes, ascending; none when there is no such folder.
  [[nodiscard]] std::vector<std::string> indexFiles() const;
  /// The path of the one index that there must be.
  [[nodiscard]] std::string onlyIndex() const;

 private:
  [[noreturn]] void become(const Arguments& arguments, int out, int err) const;
};

/// What a program writes, line by line while it runs.
class Lines {
 public:
  /// From now on the program's output goes here.
  explicit Lines(Quon& quon);

  /// Waits for it.
  [[nodiscard]] std::string next() const;
  [[nodiscard]] Json document() const { return Json::parse(next()); }
  /// The next document about that event; what comes before is passed over.
  [[nodiscard]] Json event(const std::string& event) const;

 private:
  Descriptor pipe;
};

/// False where no pseudo-terminal can be opened: in a chroot, say.
[[nodiscard]] bool canMakeTerminals();

/// All that is written to the terminal until the program has left it.
[[nodiscard]] std::string everythingFrom(const Descriptor& terminal);
/// With the folders above it that are missing.
void writeFile(const std::string& path, std::string_view content);
/// The member "name" of each.
[[nodiscard]] std::vector<std::string> namesOf(const Json& rows);
/// The lines of a text whose last line must end too; throws when it does not.
[[nodiscard]] std::vector<std::string> linesOf(const std::string& text);

}  // namespace quon::test
