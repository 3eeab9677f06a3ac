// The tool's own ODBC connection, beside the library's: it reads the schema,
// streams rows and learns the database's own reason for a failure.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace scadastore::cli {

struct HandleFree {
  SQLSMALLINT type;
  void operator()(void* handle) const {
    if (type == SQL_HANDLE_DBC) SQLDisconnect(handle);  // fails harmlessly when not connected
    SQLFreeHandle(type, handle);
  }
};
using Handle = std::unique_ptr<void, HandleFree>;

// "[state] message" of the handle's first diagnostic record, or "".
std::string Diagnostic(SQLSMALLINT type, SQLHANDLE handle);

// A failed ODBC call: the database's own text.
struct OdbcError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

struct ResultColumn {
  std::string name;
  SQLSMALLINT type;  // SQL_INTEGER, SQL_DOUBLE, SQL_VARCHAR, ...
};

class OdbcStatement {
 public:
  explicit OdbcStatement(Handle handle) : handle_(std::move(handle)) {}

  void Execute(const std::string& sql);
  // Compiles without running: the driver reports an unknown table or a
  // syntax error, and nothing changes.
  void Prepare(const std::string& sql);
  // Catalog calls: tables, columns and indexes of one table.
  void Tables();
  void Columns(const std::string& table);
  void Indexes(const std::string& table);

  // Rows that the last insert, update or delete changed.
  int64_t RowCount();
  std::vector<ResultColumn> Describe();
  bool Fetch();
  // Column `c` (from 1) as text; nullopt for NULL. `asDouble` reads it as a
  // double, in its shortest exact form: never through a driver's short text
  // (MariaDB gives six digits of a float).
  std::optional<std::string> Text(int c, bool asDouble = false);

 private:
  void Check(SQLRETURN result, const char* what);
  Handle handle_;
};

class OdbcConnection {
 public:
  // Connects to a data source of odbc.ini; throws an OdbcError with the
  // driver's reason.
  OdbcConnection(const std::string& dsn, const std::string& user, const std::string& password);

  OdbcStatement Statement();
  // Manual commit: nothing is kept until Commit.
  void BeginTransaction();
  void EndTransaction(bool commit);
  bool IsSqlite() const { return sqlite_; }
  // Whether a select may end in "limit N" (SQLite, PostgreSQL, MariaDB, MySQL).
  bool HasLimit() const { return limit_; }

 private:
  Handle environment_{nullptr, {SQL_HANDLE_ENV}};
  Handle connection_{nullptr, {SQL_HANDLE_DBC}};
  bool sqlite_ = false;
  bool limit_ = false;
};

}  // namespace scadastore::cli
