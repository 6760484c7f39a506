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

const char* reasonOf(const DatabaseError& failure) {
  return failure.kind == DatabaseError::Kind::busy ? "another program has locked it" : failure.what();
}

}  // namespace

JournalKeeper::JournalKeeper(std::string folder, Log& lines)
    : stateFolder(std::move(folder)), log(lines), pause(kShortestPause) {}

JournalContent JournalKeeper::load() {
  try {
    file = JournalFile::open(stateFolder, log);
    wanted = file->read();
    written = wanted;
    wasRead = true;
  } catch (const DatabaseError& failure) {
    takeFailure(failure);
  } catch (const std::system_error& failure) {
    failed(failure.what());
  }
  return wanted;
}

void JournalKeeper::keep(JournalContent content) {
  wanted = std::move(content);
  addUnread();
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
    if (!wasRead) {
      unread = file->read();
      wasRead = true;
      addUnread();
    }
    file->write(wanted);
    written = wanted;
    nextAttempt.reset();
    pause = kShortestPause;
    wasLogged = false;
  } catch (const DatabaseError& failure) {
    takeFailure(failure);
  } catch (const std::system_error& failure) {
    failed(failure.what());
  }
}

void JournalKeeper::takeFailure(const DatabaseError& failure) {
  if (!failure.isUnusable()) return failed(reasonOf(failure));
  try {
    file.reset();
    JournalFile::setAside(stateFolder, log);
    wasRead = true;  // there is nothing to read any more
    nextAttempt = Clock::now() + pause;
  } catch (const std::system_error& refused) {
    failed(refused.what());
  }
}

void JournalKeeper::addUnread() {
  wanted.newestId = std::max(wanted.newestId, unread.newestId);
  for (const RootRecord& root : unread.roots) {
    if (std::ranges::find(wanted.roots, root.path, &RootRecord::path) == wanted.roots.end())
      wanted.roots.push_back(root);
  }
}

void JournalKeeper::failed(const std::string& reason) {
  file.reset();
  nextAttempt = Clock::now() + pause;
  pause = std::min(pause * 2, kLongestPause);
  if (std::exchange(wasLogged, true)) return;
  log.line(
      fmt::format("cannot write the event journal in {}: {}; changes are recorded all the same, and the "
                  "folders to record are written down once that is possible",
                  displayText(stateFolder), reason));
}

}  // namespace quon
