// Creating a family's table on demand: the alarm and log tables.
#pragma once

#include <string>

#include "core/settings.h"
#include "core/sql_text.h"

namespace scadastore {

using TableStatement = Statement (*)(DbKind kind, const char* table);

// When `table` is missing, opens a connection and runs `create`, then the
// index on `id` unless the kind creates none. Their outcome is reported nowhere: a table that
// another caller created meanwhile is fine. False only when no connection opened.
bool EnsureTableExists(const char* table, TableStatement create);

}  // namespace scadastore
