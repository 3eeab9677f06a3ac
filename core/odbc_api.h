// Every ODBC entry point the library calls, in one table. The library calls
// through Odbc() and tests every result; a test replaces entries through an
// OdbcOverride to make any call fail.
#pragma once

#include "platform/odbc.h"

namespace scadastore {

struct OdbcApi {
  decltype(&::SQLAllocHandle) AllocHandle = ::SQLAllocHandle;
  decltype(&::SQLFreeHandle) FreeHandle = ::SQLFreeHandle;
  decltype(&::SQLSetEnvAttr) SetEnvAttr = ::SQLSetEnvAttr;
  decltype(&::SQLSetConnectAttr) SetConnectAttr = ::SQLSetConnectAttr;
  decltype(&::SQLConnect) Connect = ::SQLConnect;
  decltype(&::SQLDriverConnect) DriverConnect = ::SQLDriverConnect;
  decltype(&::SQLGetInfo) GetInfo = ::SQLGetInfo;
  decltype(&::SQLDisconnect) Disconnect = ::SQLDisconnect;
  decltype(&::SQLSetStmtAttr) SetStmtAttr = ::SQLSetStmtAttr;
  decltype(&::SQLBindParameter) BindParameter = ::SQLBindParameter;
  decltype(&::SQLExecDirect) ExecDirect = ::SQLExecDirect;
  decltype(&::SQLExecute) Execute = ::SQLExecute;
  decltype(&::SQLTables) Tables = ::SQLTables;
  decltype(&::SQLFetch) Fetch = ::SQLFetch;
  decltype(&::SQLFetchScroll) FetchScroll = ::SQLFetchScroll;
  decltype(&::SQLNumResultCols) NumResultCols = ::SQLNumResultCols;
  decltype(&::SQLDescribeCol) DescribeCol = ::SQLDescribeCol;
  decltype(&::SQLGetData) GetData = ::SQLGetData;
  decltype(&::SQLBindCol) BindCol = ::SQLBindCol;
  decltype(&::SQLFreeStmt) FreeStmt = ::SQLFreeStmt;
  decltype(&::SQLGetDiagRec) GetDiagRec = ::SQLGetDiagRec;
  // The tool's catalog reads, compiled statements and transactions.
  decltype(&::SQLPrepare) Prepare = ::SQLPrepare;
  decltype(&::SQLRowCount) RowCount = ::SQLRowCount;
  decltype(&::SQLColumns) Columns = ::SQLColumns;
  decltype(&::SQLStatistics) Statistics = ::SQLStatistics;
  decltype(&::SQLEndTran) EndTran = ::SQLEndTran;
  // Rows the driver inserts itself.
  decltype(&::SQLBulkOperations) BulkOperations = ::SQLBulkOperations;
};

// The table in force.
const OdbcApi& Odbc();

// Tests only: entries set through it stay in force until it is destroyed,
// which restores the whole table. Not for use while other threads call ODBC.
class OdbcOverride {
 public:
  OdbcOverride();
  ~OdbcOverride();
  OdbcOverride(const OdbcOverride&) = delete;
  OdbcOverride& operator=(const OdbcOverride&) = delete;
  OdbcApi* operator->();

 private:
  OdbcApi saved_;
};

}  // namespace scadastore
