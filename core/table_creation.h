// Creating a family's table on demand, with its indexes.
#pragma once

#include <cstdint>
#include <string>

#include "core/connection.h"
#include "core/settings.h"
#include "core/sql_text.h"

namespace scadastore {

using TableStatement = Statement (*)(DbKind kind, const char* table);

// After a create that succeeded, under a kind that creates indexes: the
// index `idx_<table>` on `id` (its statement bounded by `idBufferSize`, cut
// and so rejected for long names) and the index on `timeColumn`, which time
// ranges and statistics filter on. Their outcome is reported nowhere.
void CreateIndexes(DbConnection& db, const std::string& table, const char* timeColumn,
                   uint32_t idBufferSize);

// When `table` is missing, opens a connection, runs `create` and then
// CreateIndexes. A table that another caller created meanwhile is fine.
// False only when no connection opened.
bool EnsureTableExists(const char* table, TableStatement create, const char* timeColumn);

}  // namespace scadastore
