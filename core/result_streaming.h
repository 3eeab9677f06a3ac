// Forward-only results read a row or a page at a time instead of whole at
// execute. The SQLite driver steps them when its connection text asks for
// StepAPI (core/connect.cpp). psqlODBC reads them through a server-side
// cursor while its UseDeclareFetch option is on; that option would also
// wrap static cursors and the statements beside them in one transaction, so
// it is on only for a forward-only read and off again before the connection
// is reused.
#pragma once

#include "platform/odbc.h"

namespace scadastore {

// Rows psqlODBC fetches per round trip while streaming.
constexpr SQLULEN kStreamedRowsPerFetch = 1000;

// True when the connection's driver is psqlODBC.
bool IsPsqlOdbcConnection(SQLHDBC connection);

// Switches psqlODBC's UseDeclareFetch on (pages of kStreamedRowsPerFetch
// rows) or off; false when the driver refused.
bool SetDeclareFetch(SQLHDBC connection, bool on);

}  // namespace scadastore
