#include "RecorderProgram.h"

#include <array>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace quon::test {

RecorderProgram::RecorderProgram(const EventHome& home, std::vector<std::string> arguments) {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  output = Descriptor(ends[0]);
  const Descriptor input(ends[1]);
  std::vector<std::string> words{QUON_RECORDER};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables{"HOME=" + home.temp.path, "XDG_STATE_HOME=" + home.temp.at("state"),
                                     "XDG_DATA_HOME=" + home.temp.at("share"),
                                     "XDG_CONFIG_HOME=" + home.temp.at("config")};
  const auto pointers = [](std::vector<std::string>& texts) {
    std::vector<char*> all;
    all.reserve(texts.size() + 1);
    for (std::string& text : texts) all.push_back(text.data());
    all.push_back(nullptr);
    return all;
  };
  const std::vector<char*> argumentPointers = pointers(words);
  const std::vector<char*> variablePointers = pointers(variables);
  child = ::fork();
  if (child != 0) return;
  // Other threads may run in the parent: nothing here allocates.
  ::dup2(input.get(), STDOUT_FILENO);
  ::dup2(input.get(), STDERR_FILENO);
  ::execve(QUON_RECORDER, argumentPointers.data(), variablePointers.data());
  ::_exit(127);
}

RecorderProgram::~RecorderProgram() {
  if (child <= 0) return;
  ::kill(child, SIGKILL);
  ::waitpid(child, nullptr, 0);
}

std::string RecorderProgram::line() const {
  std::string text;
  for (char byte = 0; ::read(output.get(), &byte, 1) == 1 && byte != '\n';) text += byte;
  return text;
}

void RecorderProgram::stop() const {
  ::kill(child, SIGSTOP);
  ::waitpid(child, nullptr, WUNTRACED);
}

int RecorderProgram::end(int signal) {
  if (signal != 0) ::kill(child, signal);
  int status = 0;
  ::waitpid(std::exchange(child, -1), &status, 0);
  return WIFSIGNALED(status) ? -WTERMSIG(status) : WEXITSTATUS(status);
}

}  // namespace quon::test
