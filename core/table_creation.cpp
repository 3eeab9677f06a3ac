#include "core/table_creation.h"

#include "core/connection.h"

namespace scadastore {

bool EnsureTableExists(const char* table, TableStatement create, TableStatement index) {
  DbConnection db;
  if (db.TableExists(table)) return true;
  if (!db.Open()) return false;
  if (db.Execute(create(db.dialect(), table).c_str()) && CreatesIndex(db.kind()))
    db.Execute(index(db.dialect(), table).c_str());
  return true;
}

}  // namespace scadastore
