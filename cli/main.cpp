#include <exception>
#include <new>
#include <variant>

#include "CommandLine.h"
#include "Commands.h"
#include "Output.h"
#include "Session.h"
#include "base/Fatal.h"
#include "platform_linux/LinuxPlatform.h"

namespace {

using namespace quon;
using namespace quon::cli;

constexpr int kFailed = 1;
constexpr int kInterrupted = 130;

int run(Session& session, const Command& command) {
  switch (command.verb) {
    case Command::Verb::scan:
      return runScan(session, command);
    case Command::Verb::ls:
      return runList(session, command);
    case Command::Verb::largest:
      return runLargest(session, command);
    case Command::Verb::kinds:
      return runKinds(session, command);
    case Command::Verb::untouched:
      return runUntouched(session, command);
    case Command::Verb::reclaim:
      return runReclaim(session, command);
    case Command::Verb::map:
      return runMap(session, command);
    case Command::Verb::search:
      return runSearch(session, command);
    case Command::Verb::commands:
      return runCommands(session, command);
    case Command::Verb::names:
      return runNames(session, command);
    case Command::Verb::indexes:
      return runIndexes(session, command);
    case Command::Verb::watch:
      return runWatch(session, command);
    case Command::Verb::refresh:
      return runRefresh(session, command);
    case Command::Verb::trash:
      return runTrash(session, command);
    case Command::Verb::record:
      return runRecord(session, command);
  }
  return kFailed;
}

}  // namespace

int main(int count, char** arguments) {
  const auto parsed = parseCommandLine(count, arguments);
  if (const int* status = std::get_if<int>(&parsed)) return flushOutput() ? *status : kFailed;
  try {
    endQuietlyOutOfMemory();
    LinuxPlatform::returnFreedMemory();
    LinuxPlatform::dropRelativeFolders();
    LinuxPlatform::ignoreFileSizeSignal();
    LinuxPlatform::raiseOpenFileLimit();
    const LinuxPlatform platform;
    const Command& command = std::get<Command>(parsed);
    const auto stay = command.verb == Command::Verb::watch ? Session::Stay::stays : Session::Stay::ends;
    Session session(platform.services(), LinuxPlatform::folders(), Terminal::detect(), stay);
    AppModel& model = session.model();
    model.options.catchUp = command.catchUp;
    model.options.typingPauses = false;
    model._metric.set(command.metric);
    const int status = run(session, command);
    return flushOutput() ? status : kFailed;
  } catch (const Interrupted&) {
    return kInterrupted;
  } catch (const std::bad_alloc&) {
    endOutOfMemory();
  } catch (const std::exception& failure) {
    warn(failure.what());
    return kFailed;
  }
}
