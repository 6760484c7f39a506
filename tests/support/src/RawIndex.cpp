#include "support/RawIndex.h"

#include <fstream>
#include <iterator>
#include <memory>
#include <sqlite3.h>
#include <stdexcept>

#include "base/Hex.h"

namespace quon::test {

RawIndex::RawIndex(const std::string& path) {
  if (sqlite3_open_v2(path.c_str(), &connection, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
    const std::string reason = sqlite3_errmsg(connection);
    sqlite3_close(connection);
    throw std::runtime_error(reason);
  }
  // Tests need no durability; for a file that is no database the next statement fails.
  (void)sqlite3_exec(connection, "PRAGMA synchronous = OFF", nullptr, nullptr, nullptr);
}

RawIndex::~RawIndex() {
  sqlite3_close_v2(connection);
}

void RawIndex::exec(const std::string& script) {
  if (sqlite3_exec(connection, script.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sqlite3_errmsg(connection) + (" in " + script));
  }
}

std::vector<RawIndex::Row> RawIndex::rows(const std::string& query) {
  sqlite3_stmt* prepared = nullptr;
  if (sqlite3_prepare_v2(connection, query.c_str(), -1, &prepared, nullptr) != SQLITE_OK) {
    throw std::runtime_error(sqlite3_errmsg(connection));
  }
  const std::unique_ptr<sqlite3_stmt, decltype(&sqlite3_finalize)> statement(prepared, &sqlite3_finalize);
  std::vector<Row> found;
  int status = SQLITE_ROW;
  while ((status = sqlite3_step(prepared)) == SQLITE_ROW) {
    Row& row = found.emplace_back();
    for (int column = 0; column < sqlite3_column_count(prepared); ++column) {
      const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(prepared, column));
      const auto length = static_cast<std::size_t>(sqlite3_column_bytes(prepared, column));
      row.push_back(text == nullptr ? std::string("(null)") : std::string(text, length));
    }
  }
  if (status != SQLITE_DONE) throw std::runtime_error(sqlite3_errmsg(connection));
  return found;
}

std::string RawIndex::value(const std::string& query) {
  return rows(query).at(0).at(0);
}

std::map<std::string, std::string> folderPaths(RawIndex& index, std::string_view rootPath) {
  std::map<std::string, std::string> paths;
  for (const RawIndex::Row& row : index.rows("SELECT id, parent, name FROM dirs ORDER BY id")) {
    paths[row[0]] = row[1] == "(null)" ? std::string(rootPath) : paths.at(row[1]) + "/" + row[2];
  }
  return paths;
}

std::string sqlText(std::string_view bytes) {
  return "CAST(x'" + hexDigits(bytes) + "' AS TEXT)";
}

std::string readBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error("cannot read " + path);
  return {std::istreambuf_iterator<char>(file), {}};
}

void writeBytes(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!file.write(bytes.data(), static_cast<std::streamsize>(bytes.size())).flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

}  // namespace quon::test
