#include "Subtree.h"

#include <string>

#include "database/Database.h"

namespace quon {

void deleteSubtree(Database& database, std::int64_t folder) {
  for (const char* deletion : {"DELETE FROM links WHERE dir IN (SELECT id FROM sub)",
                               "DELETE FROM files WHERE dir IN (SELECT id FROM sub)",
                               "DELETE FROM dirs WHERE id IN (SELECT id FROM sub)"}) {
    Statement statement = database.prepare(std::string(kSubtreeSQL) + deletion);
    statement.bind(1, folder);
    statement.run();
  }
}

}  // namespace quon
