#include "core/connect.h"

#include <algorithm>
#include <chrono>
#include <cctype>
#include <cstring>
#include <mutex>
#include <string>

#include <odbcinst.h>

#include "core/host_order.h"
#include "core/odbc_api.h"
#include "core/server_wait.h"
#include "platform/connection_socket.h"

namespace scadastore {
namespace {

// A connection-text value in braces, each '}' doubled. Unbraced, psqlODBC
// decodes '+' and '%XX' in a password and a value beginning with '{' swallows
// the keys after it.
std::string Braced(const char* value) {
  std::string text = "{";
  for (; *value != '\0'; ++value) {
    text += *value;
    if (*value == '}') text += '}';
  }
  return text + '}';
}

// MariaDB's driver ignores the login time-out and reads CONN_TIMEOUT from the
// connection text instead; the other drivers ignore that key. An empty user or
// password is left out, so the data source's own entry applies, as with
// SQLConnect.
std::string ConnectionText(const char* dsn, const char* user, const char* password,
                           int loginSeconds, const HostList& hosts) {
  std::string text = std::string("DSN=") + dsn;
  if (!hosts.key.empty()) text += ";" + hosts.key + "=" + hosts.ordered;
  if (*user != '\0') text += std::string(";UID=") + user;
  if (*password != '\0') text += ";PWD=" + Braced(password);
  // StepAPI: the SQLite driver steps forward-only results instead of reading
  // them whole at execute (core/result_streaming.h); the others ignore it.
  return text + ";CONN_TIMEOUT=" + std::to_string(loginSeconds) + ";StepAPI=1";
}

// True when the data source's driver is psqlODBC, by its name or its file
// (odbc.ini names either; odbcinst.ini maps a name to the file).
bool IsPsqlOdbc(const char* dsn) {
  auto names = [](std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text.find("psqlodbc") != std::string::npos ||
           text.find("postgresql") != std::string::npos;
  };
  char driver[512] = {};
  SQLGetPrivateProfileString(dsn, "Driver", "", driver, sizeof driver, "odbc.ini");
  if (driver[0] == '\0') return false;
  char file[512] = {};
  SQLGetPrivateProfileString(driver, "Driver", "", file, sizeof file, "odbcinst.ini");
  return names(driver) || names(file);
}

// The descriptor of the one socket in `now` that `before` did not list;
// kNoSocket when there is none, kUnknownSocket when there are several.
int SocketOpenedBetween(const SocketList& before, const SocketList& now) {
  const SocketList opened = OpenedBetween(before, now);
  if (opened.empty()) return kNoSocket;
  return opened.size() == 1 ? opened.front().second : kUnknownSocket;
}

// Only a file database may lack a socket. A server connection whose socket was
// not seen (a named pipe; under Wine, a Linux driver's socket, which Winsock
// does not list) must not pass for one: it could not be checked before reuse.
bool IsFileDatabase(SQLHDBC connection) {
  char name[32] = {};
  SQLSMALLINT length = 0;
  return SQL_SUCCEEDED(Odbc().GetInfo(connection, SQL_DBMS_NAME, name, sizeof name, &length)) &&
         std::strncmp(name, "SQLite", 6) == 0;
}

// One connect with the servers of a host list in `hosts`' order.
SQLRETURN ConnectOnce(SQLHDBC connection, const char* dsn, const char* user,
                      const char* password, int loginSeconds, const HostList& hosts) {
  // SQLConnect parses nothing. psqlODBC connects through it: given a password
  // in a connection text it loses a copy of it at every connect (a host list
  // is then tried in the data source's order). So does a user beginning with
  // '{', which psqlODBC reads literally, braces included, where MariaDB's
  // driver requires it braced (MariaDB's login bound is then the data
  // source's own CONN_TIMEOUT).
  if (*user == '{' || (IsPsqlOdbc(dsn) && (*password != '\0' || hosts.key.empty())))
    return Odbc().Connect(connection, (SQLCHAR*)dsn, SQL_NTS, (SQLCHAR*)user, SQL_NTS,
                          (SQLCHAR*)password, SQL_NTS);
  const std::string text = ConnectionText(dsn, user, password, loginSeconds, hosts);
  return Odbc().DriverConnect(connection, nullptr, (SQLCHAR*)text.c_str(), SQL_NTS, nullptr, 0,
                              nullptr, SQL_DRIVER_NOPROMPT);
}

}  // namespace

SQLRETURN Connect(SQLHDBC connection, const char* dsn, const char* user, const char* password,
                  int loginSeconds, int statementSeconds, int& socket) {
  socket = kNoSocket;
  const SQLRETURN set = Odbc().SetConnectAttr(
      connection, SQL_ATTR_LOGIN_TIMEOUT,
      reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(loginSeconds)), 0);
  if (!SQL_SUCCEEDED(set)) return set;

  static std::mutex connecting;
  std::lock_guard lock(connecting);
  const SocketList before = OpenSockets();
  // A connect that took the whole login time-out waited on the first server
  // of its list: libpq then went on to the next, MariaDB's driver gives up.
  // That server goes last for a while, and a failed connect tries once more.
  SQLRETURN rc = SQL_ERROR;
  for (int attempt = 0; attempt < 2; ++attempt) {
    const HostList hosts = HostsToTry(dsn);
    const auto started = std::chrono::steady_clock::now();
    {
      // psqlODBC's first statements after the login wait without a bound.
      const ServerWaitLimit bound(before, loginSeconds + statementSeconds);
      rc = ConnectOnce(connection, dsn, user, password, loginSeconds, hosts);
    }
    const bool waitedOut = loginSeconds > 0 && std::chrono::steady_clock::now() - started >=
                                                   std::chrono::milliseconds(loginSeconds * 900);
    if (waitedOut) MarkFirstHostSilent(hosts);
    if (SQL_SUCCEEDED(rc) || !waitedOut || hosts.key.empty()) break;
  }
  if (!SQL_SUCCEEDED(rc)) return rc;
  socket = SocketOpenedBetween(before, OpenSockets());
  if (socket == kNoSocket && !IsFileDatabase(connection)) socket = kUnknownSocket;
  return rc;
}

}  // namespace scadastore
