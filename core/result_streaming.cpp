#include "core/result_streaming.h"

#include <cstring>

#include "core/odbc_api.h"

namespace scadastore {
namespace {

// psqlODBC's own connection attributes (SQL_ATTR_PGOPT_USE_DECLAREFETCH and
// SQL_ATTR_PGOPT_FETCH), taken after connect.
constexpr SQLINTEGER kPsqlUseDeclareFetch = 65539;
constexpr SQLINTEGER kPsqlFetchRows = 65541;

}  // namespace

bool IsPsqlOdbcConnection(SQLHDBC connection) {
  char name[64] = {};
  SQLSMALLINT length = 0;
  if (!SQL_SUCCEEDED(Odbc().GetInfo(connection, SQL_DRIVER_NAME, name, sizeof name, &length)))
    return false;
  for (char& c : name) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  return std::strstr(name, "psqlodbc") != nullptr;
}

bool SetDeclareFetch(SQLHDBC connection, bool on) {
  auto set = [&](SQLINTEGER attribute, SQLULEN value) {
    return SQL_SUCCEEDED(
        Odbc().SetConnectAttr(connection, attribute, reinterpret_cast<SQLPOINTER>(value), 0));
  };
  return set(kPsqlFetchRows, kStreamedRowsPerFetch) && set(kPsqlUseDeclareFetch, on ? 1 : 0);
}

}  // namespace scadastore
