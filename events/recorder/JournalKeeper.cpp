#include "recorder/JournalKeeper.h"

#include <algorithm>
#include <fmt/format.h>
#include <system_error>
#include <utility>

#include "base/Log.h"
#include "base/Text.h"

namespace quon {
namespace {

using namespace std::chrono_literals;

constexpr JournalKeeper::Clock::duration kShortestPause = 1s;
constexpr JournalKeeper::Clock::duration kLongestPause = 10min;

}  // namespace

JournalKeeper::JournalKeeper(std::string folder, Log& lines)
    : stateFolder(std::move(folder)), log(lines), pause(kShortestPause) {}

JournalContent JournalKeeper::load() {
  for (bool isSecond = false;; isSecond = true) {
    try {
      file = JournalFile::open(stateFolder, log);
      wanted = file->read();
      written = wanted;
      return wanted;
    } catch (const DatabaseError& failure) {
      file.reset();
      if (failure.isUnusable() && !isSecond) {
        JournalFile::setAside(stateFolder, log);
        continue;
      }
      failed(failure.what());
    } catch (const std::system_error& failure) {
      failed(failure.what());
    }
    return {};
  }
}

void JournalKeeper::keep(JournalContent content) {
  wanted = std::move(content);
  if (!nextAttempt && written != wanted) write();
}

void JournalKeeper::check() {
  if (file && file->isInPlace()) return;
  file.reset();
  written.reset();
  if (!nextAttempt) write();
}

void JournalKeeper::retry() {
  nextAttempt.reset();
  if (written != wanted) write();
}

void JournalKeeper::write() {
  try {
    if (!file || !file->isInPlace()) file = JournalFile::open(stateFolder, log);
    file->write(wanted);
    written = wanted;
    nextAttempt.reset();
    pause = kShortestPause;
    wasLogged = false;
  } catch (const DatabaseError& failure) {
    file.reset();
    if (failure.isUnusable()) JournalFile::setAside(stateFolder, log);
    failed(failure.kind == DatabaseError::Kind::busy ? "another program has locked it" : failure.what());
  } catch (const std::system_error& failure) {
    file.reset();
    failed(failure.what());
  }
}

void JournalKeeper::failed(const std::string& reason) {
  nextAttempt = Clock::now() + pause;
  pause = std::min(pause * 2, kLongestPause);
  if (std::exchange(wasLogged, true)) return;
  log.line(fmt::format("cannot write the event journal in {}: {}; changes are recorded all the same, and the "
                       "folders to record are written down once that is possible",
                       displayText(stateFolder), reason));
}

}  // namespace quon
