#include "core/table_creation.h"

#include "core/common_statements.h"
#include "core/connection.h"

namespace scadastore {

bool EnsureTableExists(const char* table, TableStatement create) {
  DbConnection db;
  if (db.TableExists(table)) return true;
  if (!db.Open()) return false;
  if (db.Execute(create(db.kind(), table).text.c_str()) && CreatesIndex(db.kind()))
    db.Execute(CreateIndexStatement(db.kind(), table).text.c_str());
  return true;
}

}  // namespace scadastore
