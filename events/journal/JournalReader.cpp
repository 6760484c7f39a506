// A stream asks by a row in the table of requests, and rings for the recorder. The answer says that
// everything since the stream's identifier is in the journal, or why not. From then on the stream reads the
// rows with identifiers above the last one that it saw: the recorder's transactions are the only ones that
// add any, and theirs only grow.
//
// When the journal was replaced, each stream asks the new one, from where it was; a gap, if there is one, is
// closed by the recorder, and the stream's client notices nothing.
#include "journal/JournalReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <fmt/format.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>

#include "base/Log.h"
#include "base/Path.h"
#include "base/Text.h"
#include "journal/StateFolder.h"

namespace quon {
namespace {

using Clock = std::chrono::steady_clock;
constexpr std::chrono::milliseconds kBetweenRetries{1000};

}  // namespace

JournalReader::JournalReader(std::string folder, Log& lines, int wakeDescriptor)
    : stateFolder(std::move(folder)), log(lines), wake(wakeDescriptor) {
  ensureStateFolder(stateFolder);
  stateWatch.emplace(stateFolder, StateWatch::Bell::clients);
  journal.emplace(EventJournal::open(stateFolder, log));
}

void JournalReader::wait() {
  int timeout = -1;
  if (retry) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*retry - Clock::now());
    timeout = static_cast<int>(std::max<std::int64_t>(left.count(), 0));
  }
  std::array<pollfd, 2> waits{{{wake, POLLIN, 0}, {stateWatch->descriptor(), POLLIN, 0}}};
  if (::poll(waits.data(), waits.size(), timeout) < 0 && errno != EINTR) {
    throw std::system_error(errno, std::generic_category(), "cannot wait for events");
  }
  std::uint64_t count = 0;
  if ((waits[0].revents & POLLIN) != 0) (void)!::read(wake, &count, sizeof count);
}

void JournalReader::readState() {
  const StateWatch::News news = stateWatch->read();
  if (news.folderGone) {
    ensureStateFolder(stateFolder);
    stateWatch.emplace(stateFolder, StateWatch::Bell::clients);
  }
  if (news.folderGone || (news.journalReplaced && !(journal && journal->isCurrent()))) reopen();
}

void JournalReader::reopen() {
  replaced = true;
  journal.reset();
  journal.emplace(EventJournal::open(stateFolder, log));
}

void JournalReader::serve(const Streams& streams) {
  try {
    retry.reset();
    readState();
    if (!journal || !journal->isCurrent()) reopen();
    serveAll(streams);
    lastFailure.clear();
  } catch (const DatabaseError& failure) {
    failed(failure);
  } catch (const std::system_error& failure) {
    failed(DatabaseError(DatabaseError::Kind::other, failure.what()));
  }
}

void JournalReader::serveAll(const Streams& streams) {
  // A stream that was stopped while it waited takes its request back.
  for (const auto& stream : known) {
    if (stream->phase == LiveStream::Phase::waiting && std::ranges::find(streams, stream) == streams.end()) {
      if (!replaced) journal->withdraw(stream->requestKey);
    }
  }
  known = streams;
  for (const auto& stream : known) {
    const bool asked =
        stream->phase == LiveStream::Phase::waiting || stream->phase == LiveStream::Phase::live;
    if (replaced && asked) stream->phase = LiveStream::Phase::asking;
  }
  replaced = false;
  for (const auto& stream : known) {
    if (stream->phase == LiveStream::Phase::asking) ask(*stream);
    if (stream->phase == LiveStream::Phase::waiting) takeAnswer(*stream);
    if (stream->phase == LiveStream::Phase::live) readOn(*stream);
  }
  if (mustRing) StateWatch::ring(stateFolder, StateWatch::Bell::recorder);
  mustRing = false;
}

void JournalReader::ask(LiveStream& stream) {
  stream.requestKey = journal->ask(stream.request.root, stream.cursor);
  stream.phase = LiveStream::Phase::waiting;
  mustRing = true;
}

void JournalReader::takeAnswer(LiveStream& stream) {
  const auto answer = journal->request(stream.requestKey);
  if (!answer) {
    ask(stream);  // a recorder that began meanwhile has cleared the table
    return;
  }
  if (!answer->answered) return;
  std::vector<FolderEvent> events;
  if (answer->flags != 0) {
    events.push_back({.path = stream.request.root, .flags = answer->flags, .id = stream.cursor});
    stream.phase = LiveStream::Phase::lost;
  } else {
    const auto root = journal->root(stream.request.root);
    stream.lostId = root ? root->lostId : 0;
    events = eventsAfter(stream);
    stream.phase = LiveStream::Phase::live;
  }
  journal->withdraw(stream.requestKey);
  if (stream.historyDelivered && stream.phase == LiveStream::Phase::live) {
    stream.gather(events);
    return;
  }
  if (!stream.historyDelivered) {
    events.push_back({.path = stream.request.root, .flags = EventFlag::historyDone, .id = stream.cursor});
  }
  stream.historyDelivered = true;
  stream.deliver(std::move(events));
}

std::vector<FolderEvent> JournalReader::eventsAfter(LiveStream& stream) {
  std::vector<FolderEvent> events;
  const std::uint64_t since = stream.cursor;
  journal->changedSince(since, [&](const FolderMark& mark) {
    stream.cursor = std::max(stream.cursor, mark.id);
    if (!isInside(mark.path, stream.request.root)) return;
    const std::uint32_t flags = mark.deepId > since ? EventFlag::mustScanSubdirs : 0;
    events.push_back({.path = mark.path, .flags = flags, .id = mark.id});
  });
  return events;
}

void JournalReader::readOn(LiveStream& stream) {
  const auto root = journal->root(stream.request.root);
  stream.gather(eventsAfter(stream));
  const std::uint32_t flags = root ? root->lostFlags : std::uint32_t{EventFlag::userDropped};
  if (root && root->lostId == stream.lostId) return;
  stream.phase = LiveStream::Phase::lost;
  if (flags == EventFlag::rootChanged && !stream.request.watchRoot) return;
  stream.deliver({{.path = stream.request.root, .flags = flags, .id = stream.cursor}});
}

void JournalReader::failed(const DatabaseError& failure) {
  if (failure.isUnusable()) {
    journal.reset();
    EventJournal::setAside(stateFolder, log);
  }
  if (lastFailure != failure.what()) {
    lastFailure = failure.what();
    const bool busy = failure.kind == DatabaseError::Kind::busy;
    log.line(fmt::format("cannot read the event journal in {} and keep trying: {}", displayText(stateFolder),
                         busy ? "another program has locked it" : failure.what()));
  }
  retry = Clock::now() + (failure.isUnusable() ? std::chrono::milliseconds(0) : kBetweenRetries);
}

}  // namespace quon
