// The program is started by descriptor, so that it can be run by a user who may not reach the build folder.
// Its standard output and standard error are files in memory: they never fill up, so nothing need be read
// before the program has ended.
#include "QuonProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fmt/format.h>
#include <grp.h>
#include <pty.h>
#include <stdexcept>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <termios.h>
#include <unistd.h>
#include <utility>

#include "support/RawIndex.h"

namespace quon::test {
namespace {

constexpr int kCannotStart = 126;
constexpr int kSignalled = 128;

const Descriptor kProgram(::open(QUON_PROGRAM, O_RDONLY | O_CLOEXEC));

[[noreturn]] void raise(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

Descriptor fileInMemory() {
  Descriptor made(::memfd_create("output", MFD_CLOEXEC));
  if (!made.isOpen()) raise("memfd_create");
  return made;
}

std::string contentOf(const Descriptor& file) {
  struct stat facts {};
  if (!file.isOpen() || ::fstat(file.get(), &facts) != 0) return "";
  std::string content(static_cast<std::size_t>(facts.st_size), '\0');
  if (::pread(file.get(), content.data(), content.size(), 0) != facts.st_size) raise("pread");
  return content;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers(texts.size() + 1, nullptr);
  std::ranges::transform(texts, pointers.begin(), [](std::string& text) { return text.data(); });
  return pointers;
}

}  // namespace

Running::Running(pid_t child, Descriptor output, Descriptor errors)
    : pid(child), out(std::move(output)), err(std::move(errors)) {}

Running::~Running() {
  if (ended != -1) return;
  ::kill(pid, SIGKILL);
  ::waitpid(pid, &ended, 0);
}

void Running::signal(int number) const {
  if (::kill(pid, number) != 0) raise("kill");
}

bool Running::pause() {
  signal(SIGSTOP);
  int status = 0;
  if (::waitpid(pid, &status, WUNTRACED) != pid) raise("waitpid");
  if (WIFSTOPPED(status)) return true;
  ended = status;
  return false;
}

bool Running::hasEnded() {
  return ended != -1 || ::waitpid(pid, &ended, WNOHANG) == pid;
}

Finished Running::wait() {
  if (ended == -1 && ::waitpid(pid, &ended, 0) != pid) raise("waitpid");
  const int status = WIFSIGNALED(ended) ? kSignalled + WTERMSIG(ended) : WEXITSTATUS(ended);
  return {status, contentOf(out), contentOf(err)};
}

Quon::Quon() : tree(folder.folder("tree")), home(folder.folder("home")), workingFolder(folder.path) {
  environment = {{"HOME", home},
                 {"XDG_DATA_HOME", folder.folder("data")},
                 {"XDG_CONFIG_HOME", folder.folder("config")},
                 {"XDG_STATE_HOME", folder.folder("state")},
                 {"LC_ALL", "C.UTF-8"}};
  for (const char* sanitizer : {"ASAN_OPTIONS", "LSAN_OPTIONS", "TSAN_OPTIONS", "UBSAN_OPTIONS"}) {
    const char* options = std::getenv(sanitizer);  // NOLINT(concurrency-mt-unsafe): nothing sets variables
    if (options != nullptr) environment[sanitizer] = options;
  }
}

void Quon::become(const Arguments& arguments, int out, int err) const {
  std::vector<std::string> words{"quon"};
  words.insert(words.end(), arguments.begin(), arguments.end());
  std::vector<std::string> variables;
  for (const auto& [name, value] : environment) variables.push_back(fmt::format("{}={}", name, value));
  // Whoever runs the tests may ignore interrupts, and what is ignored stays so in the program.
  for (const int number : {SIGINT, SIGTERM, SIGHUP}) std::signal(number, SIG_DFL);
  for (const auto& [resource, most] : limits) {
    const rlimit limit{most, most};
    ::setrlimit(static_cast<__rlimit_resource>(resource), &limit);
  }
  if (ignoresHangups) std::signal(SIGHUP, SIG_IGN);
  const bool isUser = user == 0 || (::setgroups(0, nullptr) == 0 && ::setresgid(user, user, user) == 0 &&
                                    ::setresuid(user, user, user) == 0);
  const bool ready = isUser && ::chdir(workingFolder.c_str()) == 0 && ::dup2(out, STDOUT_FILENO) >= 0 &&
                     ::dup2(err, STDERR_FILENO) >= 0;
  if (ready && !runUnder.empty()) {
    std::vector<std::string> traced = runUnder;
    traced.emplace_back(QUON_PROGRAM);
    traced.insert(traced.end(), arguments.begin(), arguments.end());
    ::execvpe(traced.front().c_str(), pointersTo(traced).data(), pointersTo(variables).data());
  }
  if (ready) ::fexecve(kProgram.get(), pointersTo(words).data(), pointersTo(variables).data());
  ::_exit(kCannotStart);
}

Running Quon::start(const Arguments& arguments) const {
  Descriptor out = output.empty() ? fileInMemory() : Descriptor(::open(output.c_str(), O_WRONLY | O_CLOEXEC));
  if (!out.isOpen()) raise(output);
  Descriptor err = fileInMemory();
  const pid_t child = ::fork();
  if (child < 0) raise("fork");
  if (child == 0) {
    ::dup2(::open("/dev/null", O_RDONLY), STDIN_FILENO);
    become(arguments, out.get(), err.get());
  }
  return {child, output.empty() ? std::move(out) : Descriptor(), std::move(err)};
}

Running Quon::startOnTerminal(const Arguments& arguments, std::uint16_t columns, Descriptor& terminal) const {
  winsize size{};
  size.ws_col = columns;
  size.ws_row = 24;
  int master = -1;
  const pid_t child = ::forkpty(&master, nullptr, nullptr, &size);
  if (child < 0) raise("forkpty");
  if (child == 0) become(arguments, STDOUT_FILENO, STDERR_FILENO);
  terminal = Descriptor(master);
  return {child, Descriptor(), Descriptor()};
}

Json Quon::document(Arguments arguments) const {
  arguments.emplace_back("--json");
  const Finished done = run(arguments);
  if (done.status != 0) throw std::runtime_error(done.err);
  return done.document();
}

std::string Quon::indexFolder() const {
  return environment.at("XDG_DATA_HOME") + "/quon/index";
}

std::vector<std::string> Quon::indexFiles() const {
  std::vector<std::string> names;
  std::error_code absent;
  for (const auto& item : std::filesystem::directory_iterator(indexFolder(), absent)) {
    names.push_back(item.path().filename().string());
  }
  std::ranges::sort(names);
  return names;
}

std::string Quon::onlyIndex() const {
  const std::vector<std::string> names = indexFiles();
  if (names.size() != 1) throw std::runtime_error(std::to_string(names.size()) + " files among the indexes");
  return indexFolder() + "/" + names.front();
}

Lines::Lines(Quon& quon) {
  quon.output = quon.folder.at("lines");
  if (::access(quon.output.c_str(), F_OK) != 0 && ::mkfifo(quon.output.c_str(), 0600) != 0) raise("mkfifo");
  pipe = Descriptor(::open(quon.output.c_str(), O_RDWR | O_CLOEXEC));
}

std::string Lines::next() const {
  std::string line;
  for (char byte = 0; ::read(pipe.get(), &byte, 1) == 1 && byte != '\n';) line += byte;
  return line;
}

Json Lines::event(const std::string& event) const {
  Json found = document();
  while (found.at("event") != event) found = document();
  return found;
}

bool canMakeTerminals() {
  int master = -1;
  int slave = -1;
  if (::openpty(&master, &slave, nullptr, nullptr, nullptr) != 0) return false;
  const Descriptor ends[]{Descriptor(master), Descriptor(slave)};
  return true;
}

std::string everythingFrom(const Descriptor& terminal) {
  std::string text;
  std::array<char, 4096> piece{};
  for (ssize_t got = 0; (got = ::read(terminal.get(), piece.data(), piece.size())) > 0;) {
    text.append(piece.data(), static_cast<std::size_t>(got));
  }
  return text;  // the end of a terminal is an error of its own, EIO
}

void writeFile(const std::string& path, std::string_view content) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  writeBytes(path, content);
}

std::vector<std::string> namesOf(const Json& rows) {
  std::vector<std::string> names;
  for (const Json& row : rows) names.push_back(row.at("name"));
  return names;
}

std::vector<std::string> linesOf(const std::string& text) {
  std::vector<std::string> lines;
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    if (end == std::string::npos) throw std::runtime_error("the last line does not end: " + text);
    lines.push_back(text.substr(at, end - at));
    at = end + 1;
  }
  return lines;
}

}  // namespace quon::test
