// The tables, one connection a process and thread. A process may find the file missing, torn, cut or foreign
// at any time: whoever opens it then sets it aside and begins a new one, under a lock file of its own, so
// that two who do so at once agree. A journal that was begun anew knows nothing, and identifiers are times,
// so an identifier from before it is older than anything that it covers: nobody mistakes the new one for the
// old.
//
// Write-ahead log with synchronous=NORMAL: a power cut may take the newest commits back, but marks and the
// time up to which a root is good go together.
#include "events/EventJournal.h"

#include <algorithm>
#include <bit>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "base/Log.h"
#include "base/Path.h"
#include "base/Text.h"
#include "journal/StateFolder.h"

namespace quon {
namespace {

constexpr std::int64_t kApplication = 0x51756f6e;  // "Quon", in the file's header
constexpr std::int64_t kFormat = 1;
constexpr int kBusyTimeoutMs = 1000;
constexpr mode_t kFileMode = 0600;
constexpr mode_t kOthers = 0077;

constexpr const char* kSchema = R"(
CREATE TABLE meta(key TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE folders(path BLOB PRIMARY KEY, id INTEGER NOT NULL, deep INTEGER NOT NULL) WITHOUT ROWID;
CREATE INDEX folders_by_id ON folders(id);
CREATE TABLE roots(path BLOB PRIMARY KEY, asked INTEGER NOT NULL, since INTEGER, until INTEGER NOT NULL,
  inode INTEGER NOT NULL, born INTEGER NOT NULL, lost INTEGER NOT NULL, lostFlags INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE requests(key INTEGER PRIMARY KEY AUTOINCREMENT, root BLOB NOT NULL, since INTEGER NOT NULL,
  answered INTEGER NOT NULL DEFAULT 0, flags INTEGER NOT NULL DEFAULT 0);
CREATE TABLE steps(low INTEGER NOT NULL, high INTEGER NOT NULL);
PRAGMA application_id = 1366650734;
PRAGMA user_version = 1;
)";
static_assert(kApplication == 1366650734 && kFormat == 1);

std::int64_t stored(std::uint64_t id) {
  return static_cast<std::int64_t>(
      std::min(id, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())));
}

std::string fileIn(const std::string& folder) {
  return folder + "/" + EventJournal::fileName();
}

std::string lockIn(const std::string& folder) {
  return folder + "/journal.lock";
}

/// Of the file at the path; 0 when there is none.
std::uint64_t inodeAt(const std::string& file) {
  struct stat found {};
  return ::lstat(file.c_str(), &found) == 0 ? found.st_ino : 0;
}

/// A log that was left behind belongs to a file that is gone; read with a new file it would be nonsense.
void removeLog(const std::string& file) {
  for (const char* suffix : {"-wal", "-shm"}) {
    const std::string path = file + suffix;
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) {
      throw std::system_error(errno, std::generic_category(), "cannot remove " + displayText(path));
    }
  }
}

/// Makes the file where there is none, or one without content, which is no journal any more: others that
/// still have it open must not be mistaken for users of the new one. A file that is there is not opened:
/// closing it would drop the locks that SQLite has on it for this process.
void ensureFile(const std::string& file) {
  struct stat found {};
  if (::lstat(file.c_str(), &found) == 0 && found.st_size > 0) {
    if ((found.st_mode & kOthers) != 0 && ::chmod(file.c_str(), kFileMode) != 0) {
      throw std::system_error(errno, std::generic_category(), "cannot close to others " + displayText(file));
    }
    return;
  }
  if (::unlink(file.c_str()) != 0 && errno != ENOENT) {
    throw std::system_error(errno, std::generic_category(), "cannot replace " + displayText(file));
  }
  removeLog(file);
  (void)openStateFile(file);
}

void moveAside(const std::string& file, Log& log) {
  const std::string aside = file + ".damaged";
  if (::rename(file.c_str(), aside.c_str()) != 0 && errno != ENOENT) {
    throw std::system_error(errno, std::generic_category(), "cannot set aside " + displayText(file));
  }
  removeLog(file);
  log.line("the event journal could not be read and was set aside as " + displayText(aside) +
           "; what changed before now is found on the disk where that is needed");
}

bool isOurs(Database& database) {
  return database.number("PRAGMA application_id") == kApplication &&
         database.number("PRAGMA user_version") == kFormat;
}

/// The connection, or one that is not open when the file is no journal of ours.
Database openFile(const std::string& file) {
  try {
    Database database = Database::open(file, Database::Mode::write);
    database.distrust();
    database.setBusyTimeout(kBusyTimeoutMs);
    if (database.number("PRAGMA page_count") == 0) {
      database.exec("PRAGMA journal_mode = WAL");
      Transaction transaction(database);
      database.exec(kSchema);
      transaction.commit();
    }
    if (!isOurs(database)) return {};
    database.exec("PRAGMA synchronous = NORMAL");
    database.keepLogOnClose();
    return database;
  } catch (const DatabaseError& failure) {
    if (!failure.isUnusable()) throw;
    return {};
  }
}

WatchedRoot rootOf(const Statement& row) {
  WatchedRoot root;
  root.path = row.blob(0);
  root.asked = row.size(1);
  if (!row.isNull(2)) root.coveredSince = row.size(2);
  root.goodUntil = row.size(3);
  root.identity = {std::bit_cast<std::uint64_t>(row.integer(4)), row.integer(5)};
  root.lostId = row.size(6);
  root.lostFlags = static_cast<std::uint32_t>(row.size(7));
  return root;
}

JournalRequest requestOf(const Statement& row) {
  JournalRequest request;
  request.key = row.integer(0);
  request.root = row.blob(1);
  request.since = row.size(2);
  request.answered = row.integer(3) != 0;
  request.flags = static_cast<std::uint32_t>(row.size(4));
  return request;
}

}  // namespace

std::string EventJournal::fileName() {
  return "journal.sqlite";
}

EventJournal::EventJournal(Database opened, std::string file, std::uint64_t fileInode)
    : database(std::move(opened)), path(std::move(file)), inode(fileInode) {
  prepareStatements();
}

void EventJournal::prepareStatements() {
  markStatement = database.prepare(
      "INSERT INTO folders(path, id, deep) VALUES(?1, ?2, ?3) ON CONFLICT(path) DO UPDATE SET id = ?2, "
      "deep = max(deep, ?3)");
  markOldStatement = database.prepare(
      "INSERT INTO folders(path, id, deep) VALUES(?1, ?2, ?3) ON CONFLICT(path) DO UPDATE SET id = max(id, "
      "?2), "
      "deep = max(deep, ?3)");
  sinceStatement = database.prepare("SELECT path, id, deep FROM folders WHERE id > ? ORDER BY id");
}

EventJournal EventJournal::open(const std::string& stateFolder, Log& log) {
  ensureStateFolder(stateFolder);
  const std::string file = fileIn(stateFolder);
  const StateFileLock lock(lockIn(stateFolder));
  ensureFile(file);
  Database database = openFile(file);
  if (!database.isOpen()) {
    moveAside(file, log);
    ensureFile(file);
    database = openFile(file);
  }
  if (!database.isOpen()) {
    throw DatabaseError(DatabaseError::Kind::other, "cannot make an event journal at " + displayText(file));
  }
  return {std::move(database), file, inodeAt(file)};
}

void EventJournal::setAside(const std::string& stateFolder, Log& log) {
  const StateFileLock lock(lockIn(stateFolder));
  moveAside(fileIn(stateFolder), log);
}

std::uint64_t EventJournal::newestIdIn(const std::string& stateFolder) {
  const std::string file = fileIn(stateFolder);
  if (inodeAt(file) == 0) return 0;
  try {
    Database database = Database::open(file, Database::Mode::read);
    database.distrust();
    return isOurs(database)
               ? static_cast<std::uint64_t>(database.number("SELECT value FROM meta WHERE key = 'newest'"))
               : 0;
  } catch (const DatabaseError&) {
    return 0;  // whoever records will set it aside and say so
  }
}

bool EventJournal::isCurrent() const {
  struct stat found {};
  return ::lstat(path.c_str(), &found) == 0 && found.st_ino == inode && found.st_size > 0;
}

std::uint64_t EventJournal::newestId() {
  return static_cast<std::uint64_t>(database.number("SELECT value FROM meta WHERE key = 'newest'"));
}

void EventJournal::setNewestId(std::uint64_t id) {
  Statement put = database.prepare("INSERT OR REPLACE INTO meta(key, value) VALUES('newest', ?)");
  put.bind(1, stored(id));
  put.run();
}

void EventJournal::addStep(const ClockStep& step) {
  Statement put = database.prepare("INSERT INTO steps(low, high) VALUES(?, ?)");
  put.bind(1, stored(step.low));
  put.bind(2, stored(step.high));
  put.run();
}

bool EventJournal::isAmbiguous(std::uint64_t time) {
  Statement find = database.prepare("SELECT 1 FROM steps WHERE low < ?1 AND high >= ?1");
  find.bind(1, stored(time));
  return find.step();
}

void EventJournal::mark(std::string_view folder, std::uint64_t id, bool deep) {
  markStatement.bindBlob(1, folder);
  markStatement.bind(2, stored(id));
  markStatement.bind(3, deep ? stored(id) : 0);
  markStatement.run();
}

void EventJournal::markOld(std::string_view folder, std::uint64_t id, bool deep) {
  markOldStatement.bindBlob(1, folder);
  markOldStatement.bind(2, stored(id));
  markOldStatement.bind(3, deep ? stored(id) : 0);
  markOldStatement.run();
}

void EventJournal::changedSince(std::uint64_t id, const std::function<void(const FolderMark&)>& each) {
  sinceStatement.reset();
  sinceStatement.bind(1, stored(id));
  FolderMark mark;
  while (sinceStatement.step()) {
    mark.path = sinceStatement.blob(0);
    mark.id = sinceStatement.size(1);
    mark.deepId = sinceStatement.size(2);
    each(mark);
  }
  sinceStatement.reset();
}

std::vector<WatchedRoot> EventJournal::roots() {
  Statement rows =
      database.prepare("SELECT path, asked, since, until, inode, born, lost, lostFlags FROM roots");
  std::vector<WatchedRoot> all;
  while (rows.step()) all.push_back(rootOf(rows));
  return all;
}

std::optional<WatchedRoot> EventJournal::root(const std::string& folder) {
  Statement row = database.prepare(
      "SELECT path, asked, since, until, inode, born, lost, lostFlags FROM roots WHERE path = ?");
  row.bindBlob(1, folder);
  if (!row.step()) return std::nullopt;
  return rootOf(row);
}

void EventJournal::putRoot(const WatchedRoot& root) {
  Statement put = database.prepare(
      "INSERT OR REPLACE INTO roots(path, asked, since, until, inode, born, lost, lostFlags) "
      "VALUES(?, ?, ?, ?, ?, ?, ?, ?)");
  put.bindBlob(1, root.path);
  put.bind(2, stored(root.asked));
  if (root.coveredSince) {
    put.bind(3, stored(*root.coveredSince));
  } else {
    put.bindNull(3);
  }
  put.bind(4, stored(root.goodUntil));
  put.bind(5, std::bit_cast<std::int64_t>(root.identity.inode));
  put.bind(6, root.identity.bornMicros);
  put.bind(7, stored(root.lostId));
  put.bind(8, static_cast<std::int64_t>(root.lostFlags));
  put.run();
}

void EventJournal::prune(std::uint64_t askedBefore) {
  Statement forget = database.prepare("DELETE FROM roots WHERE asked < ?");
  forget.bind(1, stored(askedBefore));
  forget.run();
  // A mark serves clients that resume from before it under a root that has been covered since then.
  const std::vector<WatchedRoot> left = roots();
  std::vector<std::string> useless;
  changedSince(0, [&](const FolderMark& mark) {
    const bool serves = std::ranges::any_of(left, [&](const WatchedRoot& root) {
      return isInside(mark.path, root.path) && root.coveredSince && mark.id > *root.coveredSince;
    });
    if (!serves) useless.push_back(mark.path);
  });
  database.exec("DELETE FROM requests WHERE answered = 1");  // whoever still waits for one asks again
  Statement drop = database.prepare("DELETE FROM folders WHERE path = ?");
  for (const std::string& folder : useless) {
    drop.bindBlob(1, folder);
    drop.run();
  }
}

std::int64_t EventJournal::ask(const std::string& root, std::uint64_t since) {
  Statement put = database.prepare("INSERT INTO requests(root, since) VALUES(?, ?)");
  put.bindBlob(1, root);
  put.bind(2, stored(since));
  put.run();
  return database.lastInsertRowId();
}

std::vector<JournalRequest> EventJournal::unanswered() {
  Statement rows = database.prepare(
      "SELECT key, root, since, answered, flags FROM requests WHERE answered = 0 ORDER BY key");
  std::vector<JournalRequest> all;
  while (rows.step()) all.push_back(requestOf(rows));
  return all;
}

std::optional<JournalRequest> EventJournal::request(std::int64_t key) {
  Statement row = database.prepare("SELECT key, root, since, answered, flags FROM requests WHERE key = ?");
  row.bind(1, key);
  if (!row.step()) return std::nullopt;
  return requestOf(row);
}

void EventJournal::answer(std::int64_t key, std::uint32_t flags) {
  Statement put = database.prepare("UPDATE requests SET answered = 1, flags = ? WHERE key = ?");
  put.bind(1, static_cast<std::int64_t>(flags));
  put.bind(2, key);
  put.run();
}

void EventJournal::withdraw(std::int64_t key) {
  Statement drop = database.prepare("DELETE FROM requests WHERE key = ?");
  drop.bind(1, key);
  drop.run();
}

}  // namespace quon
