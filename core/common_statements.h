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
// blank, in a 1024-byte buffer; `backtickColumns` is written in the backtick
// dialect, which `kind` translates. Every ` integer` column of a fixed
// record is unsigned 32-bit: UnsignedType(kind) declares it.
Statement CreateFixedTableStatement(DbKind kind, const char* table, const char* backtickColumns);

// What the kind writes after the closing parenthesis of a create statement:
// under kind 2 its texts compare byte for byte, also in case, accents and
// trailing spaces.
const char* TableOptions(DbKind kind);
// The declared type of an unsigned 32-bit column, with its leading blank.
const char* UnsignedType(DbKind kind);

}  // namespace scadastore
