// Process-wide connection settings, database kinds and their SQL dialects.
#pragma once

#include <cstdint>
#include <string>

namespace scadastore {

// Database kind 1..6 given to dbInitialize.
using DbKind = int32_t;

// How identifiers are enclosed: `name`, [name] or "name".
enum class SqlDialect { Backtick, Bracket, DoubleQuote };

inline constexpr int kDefaultLoginTimeoutSeconds = 7;
inline constexpr int kDefaultStatementTimeoutSeconds = 300;
inline constexpr uint64_t kDefaultSpoolMegabytes = 1024;

struct ConnectionSettings {
  char dsn[64] = {};
  char user[64] = {};
  char password[64] = {};
  DbKind kind = 1;
  // Options after the kind: "pool", "login=SECONDS", "timeout=SECONDS",
  // "spool=DIR", "spoolmax=MEGABYTES".
  bool pool = false;
  int loginTimeoutSeconds = kDefaultLoginTimeoutSeconds;
  int statementTimeoutSeconds = kDefaultStatementTimeoutSeconds;  // 0: no bound
  std::string spoolDirectory;  // empty: writes are not kept
  uint64_t spoolMegabytes = kDefaultSpoolMegabytes;
};

// Parses "DSN;user;password;kind[;option...]". Unknown options are ignored; a
// known option with a bad value rejects the text. Returns false and leaves
// `out` unchanged when the text is rejected.
bool ParseSettings(const char* config, ConnectionSettings& out);

// The settings in force; written only by dbInitialize.
ConnectionSettings& Settings();

SqlDialect DialectOf(DbKind kind);

// Kind 4 fetches the first row of a result with NEXT instead of FIRST.
inline bool FirstRowByNext(DbKind kind) { return kind == 4; }
// Kind 2 ends create statements with MariaDB/MySQL table options.
inline bool HasTableOptions(DbKind kind) { return kind == 2; }
// Kinds 2 and 5 run on servers whose ` integer` is signed 32-bit: new tables
// declare their unsigned 32-bit columns ` bigint` there, so every value up to
// 4294967295 is stored and compared as an unsigned number.
inline bool WidensUnsigned(DbKind kind) { return kind == 2 || kind == 5; }
// Kinds 2 and 5 select a row at a position with limit/offset, and so do the
// others but kind 4 on SQLite, which has it too; kind 4 and the rest use
// row_number(), which SQLite also runs.
inline bool HasLimitOffset(DbKind kind, bool onSqlite) {
  return kind == 2 || kind == 5 || (onSqlite && kind != 4);
}
// Kinds 2, 3 and 5 insert several rows with one "values (...),(...)".
inline bool HasMultiRowValues(DbKind kind) { return kind == 2 || kind == 3 || kind == 5; }
// Kind 4 creates no index on new tables.
inline bool CreatesIndex(DbKind kind) { return kind != 4; }
// Kind 2 (MariaDB/MySQL) divides integers with "div": its "/" gives a decimal.
inline const char* IntegerDivision(DbKind kind) { return kind == 2 ? "div" : "/"; }
// Kind 2's driver stores a whole result before its first row is fetched: the
// library's own block reads go by pages of ids there, and a caller's select by
// pages of the rows the server keeps for it.
inline bool ReadsInPages(DbKind kind) { return kind == 2; }
// Kind 2 cannot limit a subquery of "in", but limits a delete itself.
inline bool LimitsDeleteItself(DbKind kind) { return kind == 2; }

char OpenQuote(SqlDialect dialect);
char CloseQuote(SqlDialect dialect);

}  // namespace scadastore
