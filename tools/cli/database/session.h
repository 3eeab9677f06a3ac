// The tool's connection to the library: --config or a private SQLite data
// source, the caller token, and how failures leave a command.
#pragma once

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include "record/record_statements.h"
#include "scadastore.h"
#include "tools/cli/database/odbc.h"

namespace scadastore::cli {

// A failure that ends the command: printed after "scadastore: ", exit 1.
struct CommandError : std::runtime_error {
  using std::runtime_error::runtime_error;
};

// A wrong command line: printed like a CommandError, exit 2.
struct UsageError : CommandError {
  using CommandError::CommandError;
};

struct ConnectionOptions {
  std::string config;  // "DSN;user;password;kind[;option...]"
  std::string sqlite;  // database file of the embedded default
  int sqliteKind = 3;
  bool createSqlite = false;  // a missing --sqlite file is created, else refused
};

class Session {
 public:
  Session() = default;
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  ConnectionOptions options;

  // The library's caller token, initialising the library on first use;
  // throws a CommandError with the database's reason when it refuses.
  CallerToken Token();
  // The tool's own connection to the same database, opened on first use.
  OdbcConnection& Database();
  int kind() const { return kind_; }
  // A table or column name quoted as the kind's dialect wants.
  std::string Quote(const std::string& name) const;
  // Multi-row inserts need kind 2 to 5; kinds 1 and 6 write row by row.
  bool CanBatch() const { return record::AllowsBatches(kind_); }
  // What the tool is connected to, for reports.
  std::string Describe() const;

  // Throws a CommandError: `what`, the library's last coded text and the
  // database's reason, which the tool's own connection learns.
  [[noreturn]] void Fail(const std::string& what);
  // Throws as Fail unless an export that returns a code gave 0.
  void Check(uint32_t result, const std::string& what) {
    if (result != 0) Fail(what);
  }

  // While deferred, SIGINT and SIGTERM only set Interrupted(), so that a
  // long write can stop between two calls and say what it stored.
  void DeferInterrupts(bool defer);
  static bool Interrupted();

 private:
  void Configure();
  void WriteSqliteDataSource();
  void RemoveDataSourceFiles();
  // The database's reason for failing, or "" when a probe succeeds.
  std::string Reason();
  // The database's reason for a statement in the library's text, learned
  // by compiling it on the tool's connection; "" when there is none.
  std::string StatementReason(const std::string& libraryText);

  bool configured_ = false;
  bool connected_ = false;
  int kind_ = 0;
  std::string dsn_, user_, password_;
  std::string libraryOptions_;  // "login=15;" and the like, after the kind
  std::unique_ptr<OdbcConnection> database_;
  std::string iniDir_;
  std::string databasePath_;
};

}  // namespace scadastore::cli
