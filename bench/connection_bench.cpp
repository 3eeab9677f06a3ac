// One export call cycle (connect, one-row select, read, disconnect) through
// DbConnection, beside bare ODBC making exactly the same calls.
#include <benchmark/benchmark.h>
#include <sql.h>
#include <sqlext.h>

#include <cstdlib>
#include <string>

#include "core/connection.h"
#include "core/settings.h"

namespace {

using scadastore::ConnectionSettings;
using scadastore::DbConnection;

bool Configure(benchmark::State& state, const char* envVar, int kind) {
  const char* config = std::getenv(envVar);
  if (config == nullptr ||
      !scadastore::ParseSettings((std::string(config) + ";" + std::to_string(kind)).c_str(),
                                 scadastore::Settings())) {
    state.SkipWithError((std::string(envVar) + " is not set").c_str());
    return false;
  }
  return true;
}

void LibraryCycle(benchmark::State& state, const char* envVar, int kind) {
  if (!Configure(state, envVar, kind)) return;
  for (auto _ : state) {
    DbConnection db;
    if (!db.Open() || !db.OpenQuery("select 1")) {
      state.SkipWithError(db.ErrorText());
      return;
    }
    uint32_t value = 0;
    db.MoveToFirstRow();
    db.GetInteger(1, &value, 4);
    db.Close();
    benchmark::DoNotOptimize(value);
  }
}

void BareOdbcCycle(benchmark::State& state, const char* envVar, int kind) {
  if (!Configure(state, envVar, kind)) return;
  const ConnectionSettings& s = scadastore::Settings();
  for (auto _ : state) {
    SQLHENV env = SQL_NULL_HENV;
    SQLHDBC dbc = SQL_NULL_HDBC;
    SQLHSTMT stmt = SQL_NULL_HSTMT;
    SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &env);
    SQLSetEnvAttr(env, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    SQLAllocHandle(SQL_HANDLE_DBC, env, &dbc);
    SQLSetConnectAttr(dbc, SQL_ATTR_LOGIN_TIMEOUT, reinterpret_cast<SQLPOINTER>(7), 0);
    if (!SQL_SUCCEEDED(SQLConnect(dbc, (SQLCHAR*)s.dsn, SQL_NTS, (SQLCHAR*)s.user, SQL_NTS,
                                  (SQLCHAR*)s.password, SQL_NTS))) {
      state.SkipWithError("connect failed");
      return;
    }
    SQLAllocHandle(SQL_HANDLE_STMT, dbc, &stmt);
    SQLSetStmtAttr(stmt, SQL_ATTR_CURSOR_TYPE, reinterpret_cast<SQLPOINTER>(SQL_CURSOR_STATIC),
                   SQL_IS_INTEGER);
    SQLSetStmtAttr(stmt, SQL_ATTR_CURSOR_SCROLLABLE, reinterpret_cast<SQLPOINTER>(SQL_SCROLLABLE),
                   SQL_IS_INTEGER);
    SQLExecDirect(stmt, (SQLCHAR*)"select 1", SQL_NTS);
    SQLFetchScroll(stmt, SQL_FETCH_FIRST, 0);
    SQLUINTEGER value = 0;
    SQLLEN indicator = 0;
    SQLSMALLINT columns = 0;
    SQLNumResultCols(stmt, &columns);
    SQLGetData(stmt, 1, SQL_C_ULONG, &value, sizeof value, &indicator);
    SQLFreeHandle(SQL_HANDLE_STMT, stmt);
    SQLDisconnect(dbc);
    SQLFreeHandle(SQL_HANDLE_DBC, dbc);
    SQLFreeHandle(SQL_HANDLE_ENV, env);
    benchmark::DoNotOptimize(value);
  }
}

BENCHMARK_CAPTURE(LibraryCycle, sqlite, "SCADASTORE_TEST_SQLITE", 1)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcCycle, sqlite, "SCADASTORE_TEST_SQLITE", 1)->UseRealTime();
BENCHMARK_CAPTURE(LibraryCycle, postgres, "SCADASTORE_TEST_POSTGRES", 5)->UseRealTime();
BENCHMARK_CAPTURE(BareOdbcCycle, postgres, "SCADASTORE_TEST_POSTGRES", 5)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();
