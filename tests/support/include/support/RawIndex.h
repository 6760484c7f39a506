#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;

namespace quon::test {

/// An index as any other program sees it: through the plain C interface of SQLite, with none of quon's
/// checks. Opens for writing; failures throw std::runtime_error with SQLite's message. Threads: one at a
/// time.
class RawIndex {
 public:
  using Row = std::vector<std::string>;

  explicit RawIndex(const std::string& path);
  ~RawIndex();
  RawIndex(const RawIndex&) = delete;
  RawIndex& operator=(const RawIndex&) = delete;

  void exec(const std::string& script);
  /// As an early version left it: from then on rows may be changed without the index being damaged.
  void dropTotals() { exec("DELETE FROM meta WHERE key = 'totals'"); }
  /// Every column as its bytes; NULL as "(null)".
  [[nodiscard]] std::vector<Row> rows(const std::string& query);
  /// The first column of the first row.
  [[nodiscard]] std::string value(const std::string& query);
  [[nodiscard]] sqlite3* raw() { return connection; }

 private:
  sqlite3* connection = nullptr;
};

/// The full paths of the folders by row id, put together as the rows say; throws when a folder comes before
/// its parent. "" as the path of the file system's root.
[[nodiscard]] std::map<std::string, std::string> folderPaths(RawIndex& index, std::string_view rootPath);

/// Any bytes as an SQL expression of type TEXT.
[[nodiscard]] std::string sqlText(std::string_view bytes);

[[nodiscard]] std::string readBytes(const std::string& path);
void writeBytes(const std::string& path, std::string_view bytes);

}  // namespace quon::test
