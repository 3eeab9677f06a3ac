// Creating a family's table on demand: the alarm and log tables.
#pragma once

#include <string>

#include "core/settings.h"

namespace scadastore {

using TableStatement = std::string (*)(SqlDialect dialect, const char* table);

// When `table` is missing, opens a connection and runs `create`, then `index`
// unless the kind creates none. Their outcome is reported nowhere: a table that
// another caller created meanwhile is fine. False only when no connection opened.
bool EnsureTableExists(const char* table, TableStatement create, TableStatement index);

}  // namespace scadastore
