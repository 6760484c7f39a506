#include "journal/JournalFile.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "base/Log.h"
#include "base/Text.h"
#include "journal/StateFolder.h"

namespace quon {
namespace {

constexpr std::int64_t kApplication = 0x51756f6e;  // "Quon", in the file's header
constexpr std::int64_t kFormat = 2;
/// Only a stranger can have it locked: the next attempt is better made later.
constexpr int kBusyTimeoutMs = 0;

constexpr const char* kSchema = R"(
CREATE TABLE meta(key TEXT PRIMARY KEY, value INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE roots(path BLOB PRIMARY KEY, asked INTEGER NOT NULL) WITHOUT ROWID;
PRAGMA application_id = 1366650734;
PRAGMA user_version = 2;
)";
static_assert(kApplication == 1366650734 && kFormat == 2);

enum class Kind { ours, older, foreign };

std::int64_t stored(std::uint64_t value) {
  return static_cast<std::int64_t>(
      std::min(value, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())));
}

[[noreturn]] void raise(const char* operation, const std::string& file) {
  throw std::system_error(errno, std::generic_category(), operation + (" " + displayText(file)));
}

/// Of the file at the path; 0 when there is none.
std::uint64_t inodeAt(const std::string& file) {
  struct stat found {};
  return ::lstat(file.c_str(), &found) == 0 ? found.st_ino : 0;
}

/// Logs that were left behind belong to a file that is gone; read with a new file they would be nonsense.
void removeWithLogs(const std::string& file) {
  for (const char* suffix : {"", "-journal", "-wal", "-shm"}) {
    const std::string path = file + suffix;
    if (::unlink(path.c_str()) != 0 && errno != ENOENT) raise("cannot remove", path);
  }
}

/// A file for the user alone, empty when it is new.
void ensureFile(const std::string& file) {
  struct stat found {};
  if (::lstat(file.c_str(), &found) == 0 && found.st_size > 0) {
    if (!S_ISREG(found.st_mode)) {
      errno = S_ISDIR(found.st_mode) ? EISDIR : EINVAL;
      raise("cannot open", file);
    }
    if (::chmod(file.c_str(), S_IRUSR | S_IWUSR) != 0) raise("cannot close to others", file);
    return;
  }
  removeWithLogs(file);
  (void)openStateFile(file);
}

Kind kindOf(Database& database) {
  if (database.number("PRAGMA application_id") != kApplication) return Kind::foreign;
  return database.number("PRAGMA user_version") == kFormat ? Kind::ours : Kind::older;
}

/// The connection, and what it leads to; the schema is made in an empty file.
std::pair<Database, Kind> openFile(const std::string& file) {
  try {
    Database database = Database::open(file, Database::Mode::write);
    database.distrust();
    database.setBusyTimeout(kBusyTimeoutMs);
    if (database.number("PRAGMA page_count") == 0) {
      Transaction transaction(database);
      database.exec(kSchema);
      transaction.commit();
    }
    const Kind kind = kindOf(database);
    return {std::move(database), kind};
  } catch (const DatabaseError& failure) {
    if (!failure.isUnusable()) throw;
    return {Database(), Kind::foreign};
  }
}

void moveAside(const std::string& file, Log& log) {
  const std::string aside = file + ".damaged";
  if (::rename(file.c_str(), aside.c_str()) != 0) raise("cannot set aside", file);
  removeWithLogs(file);
  log.line("the event journal could not be read and was set aside as " + displayText(aside) +
           "; folders are recorded again once a program asks for them");
}

}  // namespace

std::string JournalFile::pathIn(const std::string& stateFolder) {
  return stateFolder + "/journal.sqlite";
}

JournalFile::JournalFile(Database opened, std::string file, std::uint64_t fileInode)
    : database(std::move(opened)), path(std::move(file)), inode(fileInode) {}

JournalFile JournalFile::open(const std::string& stateFolder, Log& log) {
  ensureStateFolder(stateFolder);
  const std::string file = pathIn(stateFolder);
  ensureFile(file);
  auto [database, kind] = openFile(file);
  if (kind != Kind::ours) {
    database.close();
    if (kind == Kind::foreign) moveAside(file, log);
    removeWithLogs(file);
    ensureFile(file);
    std::tie(database, kind) = openFile(file);
  }
  if (kind != Kind::ours) {
    throw DatabaseError(DatabaseError::Kind::other, "cannot make an event journal at " + displayText(file));
  }
  return {std::move(database), file, inodeAt(file)};
}

void JournalFile::setAside(const std::string& stateFolder, Log& log) {
  moveAside(pathIn(stateFolder), log);
}

std::uint64_t JournalFile::newestIdIn(const std::string& stateFolder) {
  const std::string file = pathIn(stateFolder);
  if (inodeAt(file) == 0) return 0;
  try {
    Database database = Database::open(file, Database::Mode::read);
    database.distrust();
    database.setBusyTimeout(0);
    if (kindOf(database) != Kind::ours) return 0;
    return static_cast<std::uint64_t>(database.number("SELECT value FROM meta WHERE key = 'newest'"));
  } catch (const DatabaseError&) {
    return 0;  // whoever records next says so
  }
}

JournalContent JournalFile::read() {
  JournalContent content;
  content.newestId =
      static_cast<std::uint64_t>(database.number("SELECT value FROM meta WHERE key = 'newest'"));
  Statement rows = database.prepare("SELECT path, asked FROM roots ORDER BY path");
  while (rows.step()) content.roots.push_back({std::string(rows.blob(0)), rows.size(1)});
  return content;
}

void JournalFile::write(const JournalContent& content) {
  Transaction transaction(database);
  Statement newest = database.prepare("INSERT OR REPLACE INTO meta(key, value) VALUES('newest', ?)");
  newest.bind(1, stored(content.newestId));
  newest.run();
  database.exec("DELETE FROM roots");
  Statement put = database.prepare("INSERT INTO roots(path, asked) VALUES(?, ?)");
  for (const RootRecord& root : content.roots) {
    put.bindBlob(1, root.path);
    put.bind(2, stored(root.asked));
    put.run();
  }
  transaction.commit();
}

bool JournalFile::isInPlace() const {
  struct stat found {};
  return ::lstat(path.c_str(), &found) == 0 && found.st_ino == inode && found.st_size > 0;
}

}  // namespace quon
