// The tool's own ODBC connection, beside the library's: it reads the schema,
// streams rows and learns the database's own reason for a failure. Its
// handles and calls are the library's own (core/odbc_handle.h, Odbc()).
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "core/odbc_handle.h"

namespace scadastore::cli {

using scadastore::OdbcHandle;

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
  explicit OdbcStatement(OdbcHandle handle) : handle_(std::move(handle)) {}

  void Execute(const std::string& sql);
  // With `texts` bound in order to its "?" markers: a text never becomes SQL.
  void Execute(const std::string& sql, const std::vector<std::string>& texts);
  // Compiles without running: the driver reports an unknown table or a
  // syntax error, and nothing changes.
  void Prepare(const std::string& sql);
  // Catalog calls: tables (of `catalog`, or as the driver chooses when it is
  // empty), columns and indexes of one table.
  void Tables(const std::string& catalog);
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
  OdbcHandle handle_;
};

class OdbcConnection {
 public:
  // Connects to a data source of odbc.ini; throws an OdbcError with the
  // driver's reason.
  OdbcConnection(const std::string& dsn, const std::string& user, const std::string& password);
  ~OdbcConnection();
  OdbcConnection(const OdbcConnection&) = delete;
  OdbcConnection& operator=(const OdbcConnection&) = delete;

  OdbcStatement Statement();
  // Manual commit: nothing is kept until EndTransaction(true), after which
  // each statement commits on its own again.
  void BeginTransaction();
  void EndTransaction(bool commit);
  bool IsSqlite() const { return sqlite_; }
  // The connection's current database (catalog), "" when the driver has none.
  std::string DatabaseName();
  // Whether a select may end in "limit N" (SQLite, PostgreSQL, MariaDB, MySQL).
  bool HasLimit() const { return limit_; }

 private:
  OdbcHandle environment_{SQL_HANDLE_ENV};
  OdbcHandle connection_{SQL_HANDLE_DBC};
  bool connected_ = false;
  bool sqlite_ = false;
  bool limit_ = false;
};

}  // namespace scadastore::cli
