// The statements every family writes alike, built in the dialect of `kind`.
// Each is cut like the bounded buffer of `bufferSize` bytes its caller names.
#pragma once

#include <cstdint>
#include <string>

#include "core/settings.h"
#include "core/sql_text.h"

namespace scadastore {

Statement CreateIndexStatement(DbKind kind, const std::string& table,
                               uint32_t bufferSize = kStatementSize);
// The index on the column that time ranges filter on, named by TimeIndexName;
// its buffer holds any name a family accepts.
Statement CreateTimeIndexStatement(DbKind kind, const std::string& table, const char* column);
Statement LargestIdStatement(DbKind kind, const std::string& table,
                             uint32_t bufferSize = kStatementSize);
Statement CountStatement(DbKind kind, const std::string& table);
// Every row in id order.
Statement SelectAllStatement(DbKind kind, const std::string& table,
                             uint32_t bufferSize = kStatementSize);
Statement DeleteByIdStatement(DbKind kind, const std::string& table, uint32_t id);
Statement DropTableStatement(DbKind kind, const std::string& table);

// "create table `table` (columns)" and the kind's table options after a
// blank, in a 512-byte buffer; `backtickColumns` is written in the backtick
// dialect, which `kind` translates.
Statement CreateFixedTableStatement(DbKind kind, const char* table, const char* backtickColumns);

// What the kind writes after the closing parenthesis of a create statement.
const char* TableOptions(DbKind kind);

}  // namespace scadastore
