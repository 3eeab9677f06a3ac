// One connection per exported call: open, run statements, walk one result
// set, read columns, close. Failures of the driver land in ErrorText() and are
// announced to the monitor channel.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/bound_rowset.h"
#include "core/odbc_handle.h"
#include "core/server_wait.h"
#include "core/settings.h"

namespace scadastore {

class DbConnection {
 public:
  static constexpr unsigned kErrorTextSize = 256;

  // Captures the kind (fetch rule, dialect) in force at construction.
  DbConnection();
  explicit DbConnection(DbKind kind);
  ~DbConnection() { Close(); }
  DbConnection(const DbConnection&) = delete;
  DbConnection& operator=(const DbConnection&) = delete;

  // 1 connected, 0 failed (the driver's message is in ErrorText()).
  int Open(const char* dsn, const char* user, const char* password);
  // Opens with the settings in force.
  int Open();
  // Returns a pooled connection to the pool, or disconnects.
  void Close();
  // The caller's own statement ran: the session may keep what it changed
  // (a transaction, a setting), so it is not pooled afterwards.
  void DoNotPool() { poolable_ = false; }
  // Opens, looks the table up (exact, case-sensitive) and closes. Reports
  // nothing: a failed connect leaves no error text and is not announced.
  int TableExists(const char* tableName);
  const char* ErrorText() const { return error_text_; }
  // The last failure was a connect or a session that failed for want of the
  // server (see ServerUnreachable), or a statement cut by the server-wait bound.
  bool Unreachable() const { return unreachable_; }
  // Autocommit off, or back on; and the end of the open transaction.
  bool SetAutocommit(bool on);
  bool EndTransaction(bool commit);
  // Whether the open connection's database is SQLite (a file database),
  // whose driver hands doubles over through 15-digit text (see GetDouble).
  bool OnSqlite();
  // The SQLSTATE and native code of the last driver failure ("" and 0 after a success).
  const char* ErrorState() const { return error_state_; }
  int NativeError() const { return native_error_; }

  // A static cursor counts and returns; a forward-only one is read once with
  // MoveNext, and drivers that can stream it hold no more than a row or a page.
  enum class Cursor { Static, ForwardOnly };
  // `texts` are bound to the `?`s of `sql` in order; in the backtick dialect
  // they are converted from the host's character set to UTF-8 first.
  int OpenQuery(const char* sql, const std::vector<std::string>& texts = {},
                Cursor cursor = Cursor::Static);
  // OpenQuery that neither reports nor announces a failure: for a second form
  // of a statement whose documented form runs when this one fails.
  int TryOpenQuery(const char* sql, const std::vector<std::string>& texts = {},
                   Cursor cursor = Cursor::Static);
  int Execute(const char* sql, const std::vector<std::string>& texts = {});
  // Releases the current result, which a driver may hold whole, before the next.
  void CloseQuery() {
    rowset_.Reset();
    statement_.Free();
    result_columns_ = -1;
  }

  // A value bound to a `?` of the prepared statement; it stays in place until
  // the statement's last run.
  struct Parameter {
    enum class Type { Integer, Double, Text } type = Type::Integer;
    int64_t integer = 0;
    double real = 0;
    std::string text;  // as the caller wrote it
    std::string sent;  // in the driver's character set
    SQLLEN length = 0;
    // The text buffer the statement holds and its room: a later text that
    // fits it there needs no new binding.
    const char* boundText = nullptr;
    SQLULEN boundRoom = 0;
  };
  // One statement compiled once and run for each set of values bound to it,
  // replacing the previous one. Failures read as Execute's.
  int Prepare(const char* sql);
  int Bind(uint16_t number, Parameter& value);
  int RunPrepared();
  // Rows the driver inserts itself (SQLBulkOperations) into the table that
  // `select` reads, its columns taking each row's values in turn: the SQLite
  // driver compiles that insert once for all the rows, where it compiles a
  // prepared statement again at every run. OpenForAdding runs `claim`, then
  // the select, and gives the number of columns, 0 (and no error) when either
  // fails; AddRows inserts `rows` rows of that many numbers, row after row.
  int OpenForAdding(const char* claim, const char* select);
  int AddRows(Parameter* values, uint16_t columns, uint32_t rows);
  uint32_t CountRows();
  int MoveFirst();
  int MoveNext();
  // The rest of the open forward-only result is read by MoveNext and the
  // readers in rowsets, each column as the first row's reads took it.
  void ReadInRowsets() { rowset_.Learn(); }
  // The current row is one of a rowset the driver could not fetch: its reads
  // fail with the driver's diagnostic.
  bool RowFailed() const { return row_failed_; }
  int IsEOF() const { return end_flag_; }
  int ColumnCount();
  // Rows of the open result as the driver counts them; -1 where it does not.
  int64_t ResultRows();
  // `length` is the capacity of `name` on the way in and the name's length out.
  int DescribeColumn(uint16_t column, char* name, int32_t* type, int32_t* length);

  // The readers leave `target` untouched when the value is NULL. On SQLite
  // GetDouble reads the value as text: a decimal, or "k m" for m * 2^-k,
  // the exact form ExactSqliteDouble selects.
  int GetInteger(uint16_t column, void* target, int32_t size);
  int GetDouble(uint16_t column, void* target, int32_t size);
  int GetString(uint16_t column, char* target, int32_t capacity);

  // First row of the current result: NEXT under kind 4, FIRST otherwise.
  int MoveToFirstRow() { return FirstRowByNext(kind_) ? MoveNext() : MoveFirst(); }
  DbKind kind() const { return kind_; }
  SqlDialect dialect() const { return DialectOf(kind_); }

 private:
  enum class DiagnosticForm { Plain, WithReturnCode };
  // Every tested ODBC result passes here: true on success; on failure the
  // handle's first diagnostic becomes the error text and is announced.
  bool Check(SQLRETURN returnCode, SQLSMALLINT handleType, SQLHANDLE handle,
             DiagnosticForm form = DiagnosticForm::Plain);
  bool AllocateEnvironmentAndConnection();
  // An ODBC call that talks to the server, cut off when the server does not
  // answer within the bound.
  template <class Call>
  SQLRETURN Bounded(Call call);
  // Into `sent`: a caller's text as the driver takes it; false with the error
  // text in `form` when it is not in the host's character set.
  bool ConvertText(const std::string& text, size_t number, std::string& sent, DiagnosticForm form);
  // Values and lengths bound to a statement; they must outlive its execution.
  struct BoundTexts {
    std::vector<std::string> values;
    std::vector<SQLLEN> lengths;
  };
  // False with the error text in `form` when a text cannot be converted or bound.
  bool BindTexts(SQLHSTMT statement, const std::vector<std::string>& texts, BoundTexts& bound,
                 DiagnosticForm form);
  void ClearErrorText();
  bool ColumnExists(uint16_t column);
  int ReadFailedWithoutDriver(uint16_t column);
  // The current row's value of `column` as `cType` in `length` bytes: in
  // the bound rowset, or read into `buffer`. Null on failure, the error text set.
  char* ReadValue(uint16_t column, SQLSMALLINT cType, char* buffer, SQLLEN length,
                  SQLLEN& indicator);
  int ReadFixed(uint16_t column, SQLSMALLINT cType, void* target, int32_t size,
                int32_t valueSize);

  DbKind kind_;
  OdbcHandle environment_{SQL_HANDLE_ENV};
  OdbcHandle connection_{SQL_HANDLE_DBC};
  int socket_ = -1;         // see platform/connection_socket.h
  std::string server_;      // the address of the server reached, see PeerAddress
  std::string pool_login_;  // set while a pooled connection is held
  bool poolable_ = true;
  OdbcHandle statement_{SQL_HANDLE_STMT};
  OdbcHandle prepared_{SQL_HANDLE_STMT};
  // Result sets replaced by a later OpenQuery; released by Close.
  std::vector<OdbcHandle> replaced_statements_;
  int32_t result_columns_ = -1;  // column count of the current result, -1 unknown
  // A streamed result talks to the server until it is released: its bound
  // lasts as long, and psqlODBC's cursor option stays on as long.
  std::unique_ptr<ServerWaitLimit> streaming_limit_;
  bool declare_fetch_ = false;
  BoundRowset rowset_;
  bool row_failed_ = false;  // the current row of the rowset could not be read
  int end_flag_ = 0;
  int sqlite_ = -1;  // OnSqlite(): -1 not asked yet
  bool announce_ = true;  // false while TableExists connects
  bool unreachable_ = false;
  bool cut_by_bound_ = false;  // the last statement was cut by the server-wait bound
  char error_text_[kErrorTextSize] = {};
  char error_state_[6] = {};
  int native_error_ = 0;
};

}  // namespace scadastore
