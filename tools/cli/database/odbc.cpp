#include "tools/cli/database/odbc.h"

#include <algorithm>

#include <fmt/format.h>

namespace scadastore::cli {
namespace {

OdbcHandle Allocate(SQLSMALLINT type, SQLHANDLE parent) {
  OdbcHandle handle(type);
  if (!handle.Allocate(parent))
    throw OdbcError(parent ? Diagnostic(type == SQL_HANDLE_STMT ? SQL_HANDLE_DBC : SQL_HANDLE_ENV,
                                        parent)
                           : "cannot allocate an ODBC environment");
  return handle;
}

SQLCHAR* Chars(const std::string& text) {
  return reinterpret_cast<SQLCHAR*>(const_cast<char*>(text.c_str()));
}

}  // namespace

std::string Diagnostic(SQLSMALLINT type, SQLHANDLE handle) {
  SQLCHAR state[6] = "", message[1024] = "";
  SQLINTEGER native = 0;
  SQLSMALLINT length = 0;
  if (!SQL_SUCCEEDED(Odbc().GetDiagRec(type, handle, 1, state, &native, message, sizeof message,
                                       &length)))
    return "";
  std::string text = reinterpret_cast<char*>(message);
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
  return fmt::format("[{}] {}", reinterpret_cast<char*>(state), text);
}

void OdbcStatement::Check(SQLRETURN result, const char* what) {
  if (SQL_SUCCEEDED(result) || result == SQL_NO_DATA) return;
  std::string reason = Diagnostic(SQL_HANDLE_STMT, handle_.get());
  throw OdbcError(reason.empty() ? fmt::format("{} failed", what) : reason);
}

void OdbcStatement::Execute(const std::string& sql) {
  Check(Odbc().ExecDirect(handle_.get(), Chars(sql), SQL_NTS), "statement");
}

void OdbcStatement::Execute(const std::string& sql, const std::vector<std::string>& texts) {
  std::vector<SQLLEN> lengths(texts.size());
  for (size_t t = 0; t < texts.size(); ++t) {
    lengths[t] = static_cast<SQLLEN>(texts[t].size());
    Check(Odbc().BindParameter(handle_.get(), static_cast<SQLUSMALLINT>(t + 1), SQL_PARAM_INPUT,
                               SQL_C_CHAR, SQL_VARCHAR, std::max<SQLULEN>(texts[t].size(), 1), 0,
                               const_cast<char*>(texts[t].c_str()), lengths[t], &lengths[t]),
          "parameter");
  }
  Execute(sql);
}

void OdbcStatement::Prepare(const std::string& sql) {
  Check(Odbc().Prepare(handle_.get(), Chars(sql), SQL_NTS), "statement");
  Describe();  // psqlODBC asks the server only for the result's columns
}

void OdbcStatement::Tables(const std::string& catalog) {
  std::string type = "TABLE";
  Check(Odbc().Tables(handle_.get(), catalog.empty() ? nullptr : Chars(catalog), SQL_NTS,
                      nullptr, 0, nullptr, 0, Chars(type), SQL_NTS),
        "table list");
}

void OdbcStatement::Columns(const std::string& table) {
  Check(Odbc().Columns(handle_.get(), nullptr, 0, nullptr, 0, Chars(table), SQL_NTS, nullptr, 0),
        "column list");
}

void OdbcStatement::Indexes(const std::string& table) {
  Check(Odbc().Statistics(handle_.get(), nullptr, 0, nullptr, 0, Chars(table), SQL_NTS,
                          SQL_INDEX_ALL, SQL_QUICK),
        "index list");
}

std::vector<ResultColumn> OdbcStatement::Describe() {
  SQLSMALLINT count = 0;
  Check(Odbc().NumResultCols(handle_.get(), &count), "result columns");
  std::vector<ResultColumn> columns;
  for (SQLSMALLINT c = 1; c <= count; ++c) {
    SQLCHAR name[256] = "";
    SQLSMALLINT nameLength = 0, type = 0, digits = 0, nullable = 0;
    SQLULEN size = 0;
    Check(Odbc().DescribeCol(handle_.get(), c, name, sizeof name, &nameLength, &type, &size,
                             &digits, &nullable),
          "result column");
    columns.push_back({reinterpret_cast<char*>(name), type});
  }
  return columns;
}

int64_t OdbcStatement::RowCount() {
  SQLLEN rows = 0;
  Check(Odbc().RowCount(handle_.get(), &rows), "row count");
  return rows;
}

bool OdbcStatement::Fetch() {
  SQLRETURN result = Odbc().Fetch(handle_.get());
  Check(result, "fetch");
  return result != SQL_NO_DATA;
}

std::optional<std::string> OdbcStatement::Text(int c, bool asDouble) {
  if (asDouble) {
    double value = 0;
    SQLLEN length = 0;
    Check(Odbc().GetData(handle_.get(), static_cast<SQLUSMALLINT>(c), SQL_C_DOUBLE, &value,
                         sizeof value, &length),
          "field");
    if (length == SQL_NULL_DATA) return std::nullopt;
    return fmt::format("{}", value);
  }
  std::string text;
  char part[4096];
  for (;;) {  // a long value comes in parts, each cut with a warning
    SQLLEN length = 0;
    SQLRETURN result = Odbc().GetData(handle_.get(), static_cast<SQLUSMALLINT>(c), SQL_C_CHAR,
                                      part, sizeof part, &length);
    if (result == SQL_NO_DATA) break;
    Check(result, "field");
    if (length == SQL_NULL_DATA) return std::nullopt;
    text += part;
    if (result == SQL_SUCCESS) break;
  }
  return text;
}

std::string OdbcConnection::DatabaseName() {
  char name[256] = "";
  SQLSMALLINT length = 0;
  bool named = SQL_SUCCEEDED(
      Odbc().GetInfo(connection_.get(), SQL_DATABASE_NAME, name, sizeof name, &length));
  return named ? name : "";
}

OdbcConnection::OdbcConnection(const std::string& dsn, const std::string& user,
                               const std::string& password) {
  environment_ = Allocate(SQL_HANDLE_ENV, SQL_NULL_HANDLE);
  Odbc().SetEnvAttr(environment_.get(), SQL_ATTR_ODBC_VERSION,
                    reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
  connection_ = Allocate(SQL_HANDLE_DBC, environment_.get());
  Odbc().SetConnectAttr(connection_.get(), SQL_ATTR_LOGIN_TIMEOUT,
                        reinterpret_cast<SQLPOINTER>(10), 0);
  if (!SQL_SUCCEEDED(Odbc().Connect(connection_.get(), Chars(dsn), SQL_NTS, Chars(user), SQL_NTS,
                                    Chars(password), SQL_NTS))) {
    std::string reason = Diagnostic(SQL_HANDLE_DBC, connection_.get());
    throw OdbcError(reason.empty() ? "the driver gave no reason" : reason);
  }
  connected_ = true;
  SQLCHAR name[64] = "";
  SQLSMALLINT length = 0;
  Odbc().GetInfo(connection_.get(), SQL_DBMS_NAME, name, sizeof name, &length);
  std::string dbms = reinterpret_cast<char*>(name);
  sqlite_ = dbms.starts_with("SQLite");
  limit_ = sqlite_ || dbms == "PostgreSQL" || dbms == "MySQL" || dbms == "MariaDB";
}

OdbcConnection::~OdbcConnection() {
  if (connected_) Odbc().Disconnect(connection_.get());
}

OdbcStatement OdbcConnection::Statement() {
  return OdbcStatement(Allocate(SQL_HANDLE_STMT, connection_.get()));
}

void OdbcConnection::BeginTransaction() {
  Odbc().SetConnectAttr(connection_.get(), SQL_ATTR_AUTOCOMMIT,
                        reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0);
}

void OdbcConnection::EndTransaction(bool commit) {
  bool ended = SQL_SUCCEEDED(
      Odbc().EndTran(SQL_HANDLE_DBC, connection_.get(), commit ? SQL_COMMIT : SQL_ROLLBACK));
  std::string reason = ended ? "" : Diagnostic(SQL_HANDLE_DBC, connection_.get());
  // Later statements on the connection commit each on its own again.
  Odbc().SetConnectAttr(connection_.get(), SQL_ATTR_AUTOCOMMIT,
                        reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON), 0);
  if (!ended) throw OdbcError(reason);
}

}  // namespace scadastore::cli
