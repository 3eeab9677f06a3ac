#include "core/connect.h"

#include <mutex>
#include <string>

#include "core/odbc_api.h"
#include "platform/connection_socket.h"

namespace scadastore {

SQLRETURN Connect(SQLHDBC connection, const char* dsn, const char* user, const char* password,
                  int loginSeconds, int& socket) {
  const SQLRETURN set = Odbc().SetConnectAttr(
      connection, SQL_ATTR_LOGIN_TIMEOUT,
      reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(loginSeconds)), 0);
  if (!SQL_SUCCEEDED(set)) return set;
  // MariaDB's driver ignores the login time-out and reads CONN_TIMEOUT from
  // the connection text instead; the other drivers ignore that key. An empty
  // user or password is left out, so the data source's own entry applies, as
  // with SQLConnect.
  std::string text = std::string("DSN=") + dsn;
  if (*user != '\0') text += std::string(";UID=") + user;
  if (*password != '\0') text += std::string(";PWD=") + password;
  text += ";CONN_TIMEOUT=" + std::to_string(loginSeconds);

  static std::mutex connecting;
  std::lock_guard lock(connecting);
  const SocketList before = OpenSockets();
  const SQLRETURN rc = Odbc().DriverConnect(connection, nullptr, (SQLCHAR*)text.c_str(), SQL_NTS,
                                        nullptr, 0, nullptr, SQL_DRIVER_NOPROMPT);
  socket = SQL_SUCCEEDED(rc) ? SocketOpenedSince(before) : kNoSocket;
  return rc;
}

}  // namespace scadastore
