// The connect step of every connection.
#pragma once

#include "platform/odbc.h"

namespace scadastore {

// Connects `connection` to the data source, giving up after `loginSeconds` on
// every driver (plus `statementSeconds` where the driver runs statements of
// its own after the login), and sets `socket` to the connection's socket (see
// platform/connection_socket.h). Connects are serialised: psqlODBC's connect
// calls setlocale, which is not safe beside another thread doing the same.
SQLRETURN Connect(SQLHDBC connection, const char* dsn, const char* user, const char* password,
                  int loginSeconds, int statementSeconds, int& socket);

}  // namespace scadastore
