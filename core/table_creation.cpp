#include "core/table_creation.h"

#include "core/common_statements.h"

namespace scadastore {

void CreateIndexes(DbConnection& db, const std::string& table, const char* timeColumn,
                   uint32_t idBufferSize) {
  db.Execute(CreateIndexStatement(db.kind(), table, idBufferSize).text.c_str());
  db.Execute(CreateTimeIndexStatement(db.kind(), table, timeColumn).text.c_str());
}

bool EnsureTableExists(const char* table, TableStatement create, const char* timeColumn) {
  DbConnection db;
  if (db.TableExists(table)) return true;
  if (!db.Open()) return false;
  if (db.Execute(create(db.kind(), table).text.c_str()) && CreatesIndex(db.kind()))
    CreateIndexes(db, table, timeColumn, kStatementSize);
  return true;
}

}  // namespace scadastore
