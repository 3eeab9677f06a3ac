// Process-wide connection settings, database kinds and their SQL dialects.
#pragma once

#include <cstdint>

namespace scadastore {

// Database kind 1..6 given to dbInitialize.
using DbKind = int32_t;

// How identifiers are enclosed: `name`, [name] or "name".
enum class SqlDialect { Backtick, Bracket, DoubleQuote };

struct ConnectionSettings {
  char dsn[64] = {};
  char user[64] = {};
  char password[64] = {};
  DbKind kind = 1;
};

// Parses "DSN;user;password;kind". Returns false and leaves `out` unchanged
// when the text is rejected.
bool ParseSettings(const char* config, ConnectionSettings& out);

// The settings in force; written only by dbInitialize.
ConnectionSettings& Settings();

SqlDialect DialectOf(DbKind kind);

// Kind 4 fetches the first row of a result with NEXT instead of FIRST.
inline bool FirstRowByNext(DbKind kind) { return kind == 4; }
// Kind 2 ends create statements with MariaDB/MySQL table options.
inline bool HasTableOptions(DbKind kind) { return kind == 2; }
// Kind 4 creates no index on new tables.
inline bool CreatesIndex(DbKind kind) { return kind != 4; }

char OpenQuote(SqlDialect dialect);
char CloseQuote(SqlDialect dialect);

}  // namespace scadastore
