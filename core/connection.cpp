#include "core/connection.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>

#include "core/connect.h"
#include "core/connection_pool.h"
#include "core/exact_double.h"
#include "core/format.h"
#include "core/host_order.h"
#include "core/last_error.h"
#include "core/result_streaming.h"
#include "core/server_wait.h"
#include "core/spool.h"
#include "platform/code_page.h"
#include "platform/connection_socket.h"

namespace scadastore {
namespace {

constexpr SQLSMALLINT kDescribeNameLength = 64;
// The backtick dialect's driver delivers UTF-8; its texts are read whole into
// a buffer this many times the caller's capacity before conversion.
constexpr int kUtf8Expansion = 6;

}  // namespace

DbConnection::DbConnection() : DbConnection(Settings().kind) {}

DbConnection::DbConnection(DbKind kind) : kind_(kind) {}

// Every text is written terminated, so an empty first byte clears it; readers
// clear it once per column read.
void DbConnection::ClearErrorText() {
  error_text_[0] = '\0';
  error_state_[0] = '\0';
  native_error_ = 0;
  unreachable_ = false;
}

bool DbConnection::AllocateEnvironmentAndConnection() {
  if (!environment_.Allocate(SQL_NULL_HANDLE)) return false;
  if (!SQL_SUCCEEDED(Odbc().SetEnvAttr(environment_.get(), SQL_ATTR_ODBC_VERSION,
                                       reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0)) ||
      !connection_.Allocate(environment_.get())) {
    connection_.Free();
    environment_.Free();
    return false;
  }
  return true;
}

int DbConnection::Open(const char* dsn, const char* user, const char* password) {
  const ConnectionSettings& settings = Settings();
  poolable_ = true;
  ClearErrorText();
  if (settings.pool) {
    pool_login_ = std::string(dsn) + '\n' + user + '\n' + password;
    if (std::optional<PooledConnection> pooled = ConnectionPool::Instance().Take(pool_login_)) {
      environment_ = std::move(pooled->environment);
      connection_ = std::move(pooled->connection);
      socket_ = pooled->socket;
      server_ = std::move(pooled->server);
      return 1;
    }
  }
  if (!AllocateEnvironmentAndConnection()) return 0;
  if (Check(Connect(connection_.get(), dsn, user, password, settings.loginTimeoutSeconds,
                    settings.statementTimeoutSeconds, socket_),
            SQL_HANDLE_DBC, connection_.get())) {
    // Taken now: a driver closes its socket when a statement is cut.
    server_ = PeerAddress(socket_);
    return 1;
  }
  pool_login_.clear();
  connection_.Free();
  environment_.Free();
  return 0;
}

int DbConnection::Open() {
  const ConnectionSettings& settings = Settings();
  return Open(settings.dsn, settings.user, settings.password);
}

void DbConnection::Close() {
  sqlite_ = -1;
  rowset_.Reset();
  statement_.Free();
  prepared_.Free();
  replaced_statements_.clear();
  result_columns_ = -1;
  streaming_limit_.reset();
  if (declare_fetch_ && !SetDeclareFetch(connection_.get(), false)) poolable_ = false;
  declare_fetch_ = false;
  PooledConnection held{std::move(environment_), std::move(connection_), socket_,
                        std::move(server_)};
  // A connection whose socket is not known cannot be checked for a closed session.
  if (held.connection && !pool_login_.empty() && poolable_ && socket_ != kUnknownSocket)
    ConnectionPool::Instance().Put(pool_login_, std::move(held));
  else
    Discard(held);
  pool_login_.clear();
}

bool DbConnection::OnSqlite() {
  if (sqlite_ < 0) {
    char name[32] = {};
    SQLSMALLINT length = 0;
    sqlite_ = SQL_SUCCEEDED(Odbc().GetInfo(connection_.get(), SQL_DBMS_NAME, name, sizeof name,
                                           &length)) &&
              std::strncmp(name, "SQLite", 6) == 0;
  }
  return sqlite_ == 1;
}

int DbConnection::TableExists(const char* tableName) {
  // The lookup reports nothing, not even a failed connect.
  announce_ = false;
  const int opened = Open();
  announce_ = true;
  if (!opened) {
    ClearErrorText();
    return 0;
  }
  int found = 0;
  {  // the bound ends before Close() releases the socket
    ServerWaitLimit limit(socket_, Settings().statementTimeoutSeconds);
    // MariaDB lists the tables of every database on the server without a
    // catalog: only the data source's own database is looked in.
    char database[256] = {};
    SQLSMALLINT length = 0;
    const bool ownDatabase = dialect() == SqlDialect::Backtick &&
                             SQL_SUCCEEDED(Odbc().GetInfo(connection_.get(), SQL_DATABASE_NAME,
                                                          database, sizeof database, &length)) &&
                             database[0] != '\0';
    OdbcHandle tables(SQL_HANDLE_STMT);
    if (!tables.Allocate(connection_.get()) ||
        !SQL_SUCCEEDED(Odbc().Tables(tables.get(), ownDatabase ? (SQLCHAR*)database : nullptr,
                                     SQL_NTS, nullptr, SQL_NTS, nullptr,
                                     SQL_NTS, (SQLCHAR*)"'TABLE'", SQL_NTS))) {
      poolable_ = false;
    } else {
      char name[256];
      while (!found && SQL_SUCCEEDED(Odbc().Fetch(tables.get()))) {
        std::memset(name, 0, sizeof name);
        SQLLEN indicator = 0;
        found = SQL_SUCCEEDED(Odbc().GetData(tables.get(), 3, SQL_C_CHAR, name, sizeof name,
                                             &indicator)) &&
                std::strcmp(name, tableName) == 0;
      }
    }
  }
  Close();
  return found;
}

bool DbConnection::ConvertText(const std::string& text, size_t number, std::string& sent,
                               DiagnosticForm form) {
  if (dialect() != SqlDialect::Backtick) {
    sent = text;
    return true;
  }
  if (FromAnsi(text, sent)) return true;
  // Refused whole rather than stored altered; no driver is involved.
  char message[64];
  FormatBounded(message, sizeof message, "text %u is not in the host's character set",
                static_cast<unsigned>(number));
  if (form == DiagnosticForm::Plain)
    FormatBounded(error_text_, sizeof error_text_, "%s", message);
  else
    FormatBounded(error_text_, sizeof error_text_, "ret: %d, msg: %s", SQL_ERROR, message);
  return false;
}

bool DbConnection::BindTexts(SQLHSTMT statement, const std::vector<std::string>& texts,
                             BoundTexts& bound, DiagnosticForm form) {
  bound.values.resize(texts.size());
  bound.lengths.resize(texts.size());
  for (size_t i = 0; i < texts.size(); ++i) {
    std::string& value = bound.values[i];
    if (!ConvertText(texts[i], i + 1, value, form)) return false;
    bound.lengths[i] = static_cast<SQLLEN>(value.size());
    if (!Check(Odbc().BindParameter(statement, static_cast<SQLUSMALLINT>(i + 1), SQL_PARAM_INPUT,
                                    SQL_C_CHAR, SQL_VARCHAR, std::max<SQLULEN>(value.size(), 1), 0,
                                    value.data(), bound.lengths[i], &bound.lengths[i]),
               SQL_HANDLE_STMT, statement, form))
      return false;
  }
  return true;
}

template <class Call>
SQLRETURN DbConnection::Bounded(Call call) {
  ServerWaitLimit limit(socket_, Settings().statementTimeoutSeconds);
  const SQLRETURN rc = call();
  // After a failure the session's state is not known.
  if (!SQL_SUCCEEDED(rc)) poolable_ = false;
  cut_by_bound_ = limit.expired();
  // A cluster's later connects try that server last.
  if (cut_by_bound_) MarkServerSilent(Settings().dsn, server_);
  return rc;
}

int DbConnection::OpenQuery(const char* sql, const std::vector<std::string>& texts,
                            Cursor cursor) {
  rowset_.Reset(statement_.get());
  if (statement_) replaced_statements_.push_back(std::move(statement_));
  statement_ = OdbcHandle(SQL_HANDLE_STMT);
  result_columns_ = -1;
  ClearErrorText();
  if (!statement_.Allocate(connection_.get()))
    return Check(SQL_ERROR, SQL_HANDLE_DBC, connection_.get());
  // The static cursor lets CountRows run ahead and the readers return. It
  // scrolls even where the driver refuses the scrollable flag (psqlODBC), so
  // only the cursor type must be accepted.
  SQLHSTMT handle = statement_.get();
  if (cursor == Cursor::Static) {
    if (!Check(Odbc().SetStmtAttr(handle, SQL_ATTR_CURSOR_TYPE,
                                  reinterpret_cast<SQLPOINTER>(SQL_CURSOR_STATIC), SQL_IS_INTEGER),
               SQL_HANDLE_STMT, handle))
      return 0;
    Odbc().SetStmtAttr(handle, SQL_ATTR_CURSOR_SCROLLABLE,
                       reinterpret_cast<SQLPOINTER>(SQL_SCROLLABLE), SQL_IS_INTEGER);
  } else {
    if (!declare_fetch_ && IsPsqlOdbcConnection(connection_.get()))
      declare_fetch_ = SetDeclareFetch(connection_.get(), true);
    if (!streaming_limit_)
      streaming_limit_ =
          std::make_unique<ServerWaitLimit>(socket_, Settings().statementTimeoutSeconds);
  }
  BoundTexts bound;
  if (!BindTexts(handle, texts, bound, DiagnosticForm::Plain)) return 0;
  return Check(Bounded([&] { return Odbc().ExecDirect(handle, (SQLCHAR*)sql, SQL_NTS); }),
               SQL_HANDLE_STMT, handle);
}

int DbConnection::TryOpenQuery(const char* sql, const std::vector<std::string>& texts,
                               Cursor cursor) {
  announce_ = false;
  const int opened = OpenQuery(sql, texts, cursor);
  announce_ = true;
  if (!opened) ClearErrorText();
  return opened;
}

int DbConnection::Execute(const char* sql, const std::vector<std::string>& texts) {
  ClearErrorText();
  OdbcHandle statement(SQL_HANDLE_STMT);
  if (!statement.Allocate(connection_.get()))
    return Check(SQL_ERROR, SQL_HANDLE_DBC, connection_.get(), DiagnosticForm::WithReturnCode);
  BoundTexts bound;
  if (!BindTexts(statement.get(), texts, bound, DiagnosticForm::WithReturnCode)) return 0;
  return Check(Bounded([&] { return Odbc().ExecDirect(statement.get(), (SQLCHAR*)sql, SQL_NTS); }),
               SQL_HANDLE_STMT, statement.get(), DiagnosticForm::WithReturnCode);
}

int DbConnection::Prepare(const char* sql) {
  ClearErrorText();
  if (!prepared_.Allocate(connection_.get()))
    return Check(SQL_ERROR, SQL_HANDLE_DBC, connection_.get(), DiagnosticForm::WithReturnCode);
  return Check(Bounded([&] { return Odbc().Prepare(prepared_.get(), (SQLCHAR*)sql, SQL_NTS); }),
               SQL_HANDLE_STMT, prepared_.get(), DiagnosticForm::WithReturnCode);
}

int DbConnection::Bind(uint16_t number, Parameter& value) {
  SQLSMALLINT cType = SQL_C_SBIGINT, sqlType = SQL_BIGINT;
  SQLULEN size = 0;
  SQLLEN room = 0;
  void* data = &value.integer;
  value.length = 0;
  if (value.type == Parameter::Type::Double) {
    cType = SQL_C_DOUBLE;
    sqlType = SQL_DOUBLE;
    data = &value.real;
  } else if (value.type == Parameter::Type::Text) {
    if (!ConvertText(value.text, number, value.sent, DiagnosticForm::WithReturnCode)) return 0;
    value.length = static_cast<SQLLEN>(value.sent.size());
    if (value.sent.data() == value.boundText && value.sent.size() <= value.boundRoom) return 1;
    // Room for the texts of later rows, which are mostly no longer.
    constexpr size_t kTextRoom = 256;
    value.sent.reserve(std::max(value.sent.size(), kTextRoom));
    cType = SQL_C_CHAR;
    sqlType = SQL_VARCHAR;
    size = value.boundRoom = std::max<SQLULEN>(value.sent.capacity(), 1);
    room = static_cast<SQLLEN>(size);
    data = value.sent.data();
    value.boundText = value.sent.data();
  }
  return Check(Odbc().BindParameter(prepared_.get(), number, SQL_PARAM_INPUT, cType, sqlType, size,
                                    0, data, room, &value.length),
               SQL_HANDLE_STMT, prepared_.get(), DiagnosticForm::WithReturnCode);
}

int DbConnection::RunPrepared() {
  ClearErrorText();
  return Check(Bounded([&] { return Odbc().Execute(prepared_.get()); }), SQL_HANDLE_STMT,
               prepared_.get(), DiagnosticForm::WithReturnCode);
}

int DbConnection::OpenForAdding(const char* claim, const char* select) {
  ClearErrorText();
  SQLSMALLINT columns = 0;
  const auto run = [&](const char* sql) {
    const SQLRETURN returnCode =
        Bounded([&] { return Odbc().ExecDirect(prepared_.get(), (SQLCHAR*)sql, SQL_NTS); });
    return SQL_SUCCEEDED(returnCode) || returnCode == SQL_NO_DATA;  // the claim changes no row
  };
  // A static cursor: the SQLite driver adds no rows to a result it steps.
  const bool open =
      prepared_.Allocate(connection_.get()) &&
      SQL_SUCCEEDED(Odbc().SetStmtAttr(prepared_.get(), SQL_ATTR_CURSOR_TYPE,
                                       (SQLPOINTER)SQL_CURSOR_STATIC, 0)) &&
      run(claim) && run(select) && SQL_SUCCEEDED(Odbc().NumResultCols(prepared_.get(), &columns));
  return open ? columns : 0;
}

int DbConnection::AddRows(Parameter* values, uint16_t columns, uint32_t rows) {
  ClearErrorText();
  const SQLHSTMT statement = prepared_.get();
  const auto checked = [&](SQLRETURN returnCode) {
    return Check(returnCode, SQL_HANDLE_STMT, statement, DiagnosticForm::WithReturnCode);
  };
  // Bound by row: value c of row r is values[r * columns + c].
  const SQLULEN rowBytes = columns * sizeof(Parameter);
  bool bound =
      checked(Odbc().SetStmtAttr(statement, SQL_ATTR_ROW_BIND_TYPE, (SQLPOINTER)rowBytes, 0)) &&
      checked(Odbc().SetStmtAttr(statement, SQL_ATTR_ROW_ARRAY_SIZE, (SQLPOINTER)SQLULEN{rows}, 0));
  for (uint16_t c = 0; bound && c < columns; ++c) {
    Parameter& value = values[c];
    const bool real = value.type == Parameter::Type::Double;
    bound = checked(Odbc().BindCol(statement, c + 1, real ? SQL_C_DOUBLE : SQL_C_SBIGINT,
                                   real ? static_cast<void*>(&value.real) : &value.integer, 0,
                                   &value.length));
  }
  return bound && checked(Bounded([&] { return Odbc().BulkOperations(statement, SQL_ADD); }));
}

int DbConnection::MoveFirst() {
  if (!SQL_SUCCEEDED(Odbc().FetchScroll(statement_.get(), SQL_FETCH_FIRST, 0))) return 0;
  end_flag_ = 0;
  return 1;
}

int DbConnection::MoveNext() {
  if (rowset_.learning()) rowset_.Bind(statement_.get());
  const SQLRETURN rc = rowset_.bound() ? rowset_.Next(statement_.get())
                                       : Odbc().FetchScroll(statement_.get(), SQL_FETCH_NEXT, 0);
  // A row of a rowset the driver could not read is there to fail its reads.
  row_failed_ = rowset_.bound() && rc == SQL_ERROR;
  end_flag_ = SQL_SUCCEEDED(rc) || row_failed_ ? 0 : 1;
  return !end_flag_;
}

uint32_t DbConnection::CountRows() {
  if (!MoveToFirstRow()) return 0;
  uint32_t count = 1;
  MoveNext();
  while (end_flag_ == 0) {
    ++count;
    MoveNext();
  }
  return count;
}

int DbConnection::ColumnCount() {
  SQLSMALLINT count = 0;
  if (!SQL_SUCCEEDED(Odbc().NumResultCols(statement_.get(), &count))) count = 0;
  return count;
}

int64_t DbConnection::ResultRows() {
  SQLLEN rows = -1;
  if (!SQL_SUCCEEDED(Odbc().RowCount(statement_.get(), &rows))) rows = -1;
  return rows;
}

bool DbConnection::ColumnExists(uint16_t column) {
  // Some drivers crash when asked for a column past the end of the result.
  if (result_columns_ < 0) result_columns_ = ColumnCount();
  return column >= 1 && column <= result_columns_;
}

int DbConnection::ReadFailedWithoutDriver(uint16_t column) {
  FormatBounded(error_text_, sizeof error_text_, "column %u is not in the result (%d columns)",
                column, result_columns_);
  AnnounceFailure(error_text_);
  return 0;
}

int DbConnection::DescribeColumn(uint16_t column, char* name, int32_t* type, int32_t* length) {
  SQLSMALLINT nameLength = 0, dataType = 0, decimalDigits = 0, nullable = 0;
  SQLULEN columnSize = 0;
  SQLRETURN rc;
  if (dialect() == SqlDialect::Backtick) {
    size_t bufferSize = std::max<size_t>(2 * static_cast<size_t>(std::max(*length, 0)), 64);
    std::unique_ptr<char[]> utf8(new (std::nothrow) char[bufferSize]());
    if (!utf8) return 0;
    rc = Odbc().DescribeCol(statement_.get(), column, (SQLCHAR*)utf8.get(), kDescribeNameLength,
                        &nameLength, &dataType, &columnSize, &decimalDigits, &nullable);
    ToAnsi(utf8.get(), name, *length);
  } else {
    rc = Odbc().DescribeCol(statement_.get(), column, (SQLCHAR*)name, kDescribeNameLength,
                        &nameLength, &dataType, &columnSize, &decimalDigits, &nullable);
  }
  *type = dataType;
  *length = nameLength;
  return SQL_SUCCEEDED(rc) ? 1 : 0;
}

char* DbConnection::ReadValue(uint16_t column, SQLSMALLINT cType, char* buffer, SQLLEN length,
                             SQLLEN& indicator) {
  if (rowset_.bound()) {
    if (row_failed_) {
      // The fetch's diagnostic stays on the statement until the next fetch.
      Check(SQL_ERROR, SQL_HANDLE_STMT, statement_.get());
      return nullptr;
    }
    char* value = rowset_.Value(column, cType, length, indicator);
    if (!value) {
      FormatBounded(error_text_, sizeof error_text_,
                    "column %u is not read as in the first row", column);
      AnnounceFailure(error_text_);
    }
    return value;
  }
  if (rowset_.learning()) rowset_.Record(column, cType, length);
  if (!Check(Odbc().GetData(statement_.get(), column, cType, buffer, length, &indicator),
             SQL_HANDLE_STMT, statement_.get()))
    return nullptr;
  return buffer;
}

int DbConnection::ReadFixed(uint16_t column, SQLSMALLINT cType, void* target, int32_t size,
                            int32_t valueSize) {
  ClearErrorText();
  if (!ColumnExists(column)) return ReadFailedWithoutDriver(column);
  char buffer[8] = {};
  SQLLEN indicator = 0;
  const char* value = ReadValue(column, cType, buffer, valueSize, indicator);
  if (!value) return 0;
  if (indicator != SQL_NULL_DATA && size > 0)
    std::memcpy(target, value, static_cast<size_t>(std::min(size, valueSize)));
  return 1;
}

int DbConnection::GetInteger(uint16_t column, void* target, int32_t size) {
  // Asked 64 bits wide, kept to the low 32: a 32-bit driver converts through
  // its 32-bit long, which stops at 2147483647.
  return ReadFixed(column, SQL_C_SBIGINT, target, std::min<int32_t>(size, sizeof(SQLUINTEGER)),
                   sizeof(SQLBIGINT));
}

int DbConnection::GetDouble(uint16_t column, void* target, int32_t size) {
  if (!OnSqlite()) return ReadFixed(column, SQL_C_DOUBLE, target, size, sizeof(double));
  ClearErrorText();
  if (!ColumnExists(column)) return ReadFailedWithoutDriver(column);
  char buffer[64] = {};
  SQLLEN indicator = 0;
  const char* text = ReadValue(column, SQL_C_CHAR, buffer, sizeof buffer, indicator);
  if (!text) return 0;
  std::optional<double> value;
  if (indicator != SQL_NULL_DATA) value = ParseExactDouble(text);
  // Text that is no number reads as NULL, as the driver's own conversion does.
  if (value && size > 0)
    std::memcpy(target, &*value, static_cast<size_t>(std::min<int32_t>(size, sizeof(double))));
  return 1;
}

int DbConnection::GetString(uint16_t column, char* target, int32_t capacity) {
  if (capacity <= 0) return 0;
  if (!ColumnExists(column)) {
    ClearErrorText();
    return ReadFailedWithoutDriver(column);
  }
  const bool utf8 = dialect() == SqlDialect::Backtick;
  const size_t bufferSize = static_cast<size_t>(capacity) * (utf8 ? kUtf8Expansion : 1);
  // Texts are read into a temporary so that a NULL leaves the target as it
  // was; the usual field widths fit on the stack.
  char stackBuffer[2048];
  std::unique_ptr<char[]> heapBuffer;
  char* buffer = stackBuffer;
  if (bufferSize > sizeof stackBuffer && !rowset_.bound()) {
    heapBuffer.reset(new (std::nothrow) char[bufferSize]);
    if (!heapBuffer) return 0;
    buffer = heapBuffer.get();
  }
  buffer[0] = '\0';
  SQLLEN indicator = 0;
  ClearErrorText();
  char* value = ReadValue(column, SQL_C_CHAR, buffer, static_cast<SQLLEN>(bufferSize), indicator);
  if (!value) return 0;
  if (utf8) {
    // A NULL leaves the buffer empty, which converts to an empty text.
    if (indicator == SQL_NULL_DATA) value[0] = '\0';
    value[bufferSize - 1] = '\0';
    ToAnsi(value, target, capacity);
  } else if (indicator != SQL_NULL_DATA) {
    size_t length = strnlen(value, bufferSize - 1);
    std::memcpy(target, value, length);
    target[length] = '\0';
  }
  return 1;
}

bool DbConnection::Check(SQLRETURN returnCode, SQLSMALLINT handleType, SQLHANDLE handle,
                         DiagnosticForm form) {
  if (SQL_SUCCEEDED(returnCode)) return true;
  // Only the first record: some drivers misbehave when more are read.
  SQLCHAR state[8] = {};
  SQLINTEGER nativeError = 0;
  SQLCHAR message[256] = {};
  SQLSMALLINT textLength = 0;
  if (!SQL_SUCCEEDED(Odbc().GetDiagRec(handleType, handle, 1, state, &nativeError, message,
                                       sizeof message, &textLength)))
    message[0] = '\0';
  const char* text = reinterpret_cast<const char*>(message);
  unreachable_ = cut_by_bound_ ||
                 ServerUnreachable(reinterpret_cast<const char*>(state), nativeError, text);
  cut_by_bound_ = false;
  std::memcpy(error_state_, state, sizeof error_state_ - 1);
  error_state_[sizeof error_state_ - 1] = '\0';
  native_error_ = nativeError;
  if (form == DiagnosticForm::Plain)
    FormatBounded(error_text_, sizeof error_text_, "%s", text);
  else
    FormatBounded(error_text_, sizeof error_text_, "ret: %d, msg: %s", returnCode, text);
  if (text[0] != '\0' && announce_) AnnounceFailure(error_text_);
  return false;
}

bool DbConnection::SetAutocommit(bool on) {
  const auto value = on ? SQL_AUTOCOMMIT_ON : SQL_AUTOCOMMIT_OFF;
  if (Check(Odbc().SetConnectAttr(connection_.get(), SQL_ATTR_AUTOCOMMIT,
                                  reinterpret_cast<SQLPOINTER>(value), SQL_IS_UINTEGER),
            SQL_HANDLE_DBC, connection_.get()))
    return true;
  poolable_ = false;
  return false;
}

bool DbConnection::EndTransaction(bool commit) {
  if (Check(Odbc().EndTran(SQL_HANDLE_DBC, connection_.get(), commit ? SQL_COMMIT : SQL_ROLLBACK),
            SQL_HANDLE_DBC, connection_.get()))
    return true;
  poolable_ = false;
  return false;
}

}  // namespace scadastore
