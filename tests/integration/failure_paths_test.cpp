// Failure paths a database rarely takes, forced through the ODBC and system-call
// tables: a failed column read gives "failed to get field %d", a refused
// allocation "failed to alloc memory", and either way the connection closes.
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <tuple>
#include <string>
#include <vector>

#include "core/odbc_api.h"
#include "core/sql_text.h"
#include "platform/system_calls.h"
#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

struct FaultCase {
  const char* name;
  // 0: a result block's allocation fails instead; 98: the fetch of a rowset; 99: none
  SQLUSMALLINT failingColumn;
  std::function<uint32_t()> call;
  uint32_t result;
  std::string error;
  int blocksGranted = 0;  // result blocks allocated before the one refused
};

SQLUSMALLINT failingColumn = 0;
int blocksGranted = 0;
int connects = 0, disconnects = 0;

SQLRETURN FailingGetData(SQLHSTMT statement, SQLUSMALLINT column, SQLSMALLINT type,
                         SQLPOINTER value, SQLLEN size, SQLLEN* indicator) {
  if (column == failingColumn) return SQL_ERROR;
  return ::SQLGetData(statement, column, type, value, size, indicator);
}

SQLRETURN FailingFetchScroll(SQLHSTMT statement, SQLSMALLINT orientation, SQLLEN offset) {
  SQLULEN rows = 1;
  if (failingColumn == 98 &&
      SQL_SUCCEEDED(SQLGetStmtAttr(statement, SQL_ATTR_ROW_ARRAY_SIZE, &rows, 0, nullptr)) &&
      rows > 1)
    return SQL_ERROR;
  return ::SQLFetchScroll(statement, orientation, offset);
}

SQLRETURN CountedConnect(SQLHDBC connection, SQLHWND window, SQLCHAR* in, SQLSMALLINT inLength,
                         SQLCHAR* out, SQLSMALLINT outSize, SQLSMALLINT* outLength,
                         SQLUSMALLINT completion) {
  SQLRETURN rc =
      ::SQLDriverConnect(connection, window, in, inLength, out, outSize, outLength, completion);
  if (SQL_SUCCEEDED(rc)) ++connects;
  return rc;
}

SQLRETURN CountedSqlConnect(SQLHDBC connection, SQLCHAR* dsn, SQLSMALLINT dsnLength,
                            SQLCHAR* user, SQLSMALLINT userLength, SQLCHAR* password,
                            SQLSMALLINT passwordLength) {
  SQLRETURN rc = ::SQLConnect(connection, dsn, dsnLength, user, userLength, password,
                              passwordLength);
  if (SQL_SUCCEEDED(rc)) ++connects;
  return rc;
}

SQLRETURN CountedDisconnect(SQLHDBC connection) {
  ++disconnects;
  return ::SQLDisconnect(connection);
}

class FailurePathTest : public DatabaseTest {};

TEST_P(FailurePathTest, EveryExport) {
  const std::string alarms = DropAtEnd(UniqueTableName("alm_fault")),
                    logs = DropAtEnd(UniqueTableName("log_fault"));
  ASSERT_EQ(almEnsureTableExist(Token(), alarms.c_str()), 0u);
  ASSERT_EQ(logEnsureTableExist(Token(), logs.c_str()), 0u);
  AlarmRecord alarm{};
  ASSERT_EQ(almSetAlarm(Token(), alarms.c_str(), &alarm, sizeof alarm), 0u) << dbGetLastError();
  LogRecord entry{};
  entry.logtime = 100;
  ASSERT_EQ(logSetLog(Token(), logs.c_str(), &entry, sizeof entry), 0u) << dbGetLastError();
  AlarmQuery query{0, 0xFFFFFFFF, 0, 0, 0, 0, 0, 0};
  AlarmRecord* alarmBlock = nullptr;
  LogRecord* logBlock = nullptr;
  // Result columns: id, time, ms, modify, then a (5), b (6) and c (7).
  DataTable data(DropAtEnd(UniqueTableName("rcd_fault")), {{"a", 3}, {"b", 4}, {"c", 12}});
  const DataTableInfo* table = data.info();
  ASSERT_EQ(sgEnsureTableExist(Token(), table, nullptr, 0), 0u);
  RecordBuffer records(data.recordSize(), 2);
  records.Put<uint32_t>(0, 4, 120);
  records.Put<uint32_t>(1, 4, 180);
  for (size_t k = 0; k < 2; ++k)
    ASSERT_EQ(sgSetRecord(Token(), table, records.record(k), data.recordSize()), 0u)
        << dbGetLastError();
  RecordBuffer one(data.recordSize(), 24);
  DataTable huge = data;  // two rows of it pass the 32 bits of a block's size
  huge.info()->recordSize = 0x80000000u;
  void* block = nullptr;
  uint32_t size = 0, rows = 0, fields = 0;
  uint32_t* offsets = nullptr;
  char* text = nullptr;
  std::vector<FaultCase> cases = {
      {"almGetLastID", 1, [&] { return almGetLastID(Token(), alarms.c_str()); }, 0,
       "[alm704] failed to get field 1"},
      {"almGetAlarmByQuery", 0,
       [&] { return almGetAlarmByQuery(Token(), alarms.c_str(), &query, &alarmBlock, &size); }, 1,
       "[alm304] failed to alloc memory"},
      {"logGetLastID", 1, [&] { return logGetLastID(Token(), logs.c_str()); }, 0,
       "[log504] failed to get field 1"},
      {"logGetLogByTime", 0,
       [&] { return logGetLogByTime(Token(), logs.c_str(), 0, 200, &logBlock, &size); }, 1,
       "[log304] failed to alloc memory"},
      {"sgSetRecord", 1, [&] { return sgSetRecord(Token(), table, records.record(0), data.recordSize()); },
       1, "[rcd105] failed to get field 1"},
      {"sgGetAllRecordOfInterval", 6,
       [&] { return sgGetAllRecordOfInterval(Token(), table, 0, 200, &block, &size); }, 1,
       "[rcd211] failed to get field 6"},
      {"sgGetRecordByTime", 5,
       [&] { return sgGetRecordByTime(Token(), table, 120, one.record(0), data.recordSize()); }, 1,
       "[rcd410] failed to get field 5"},
      {"sgGetIdByIndex", 1, [&] { return sgGetIdByIndex(Token(), table, 2); }, 0,
       "[rcd905] failed to get field 1"},
      {"sgGetRecordByIndex", 7,
       [&] { return sgGetRecordByIndex(Token(), table, 2, one.record(0), data.recordSize()); }, 1,
       "[rcd1011] failed to get field 7"},
      {"sgModifyRecordByIndex", 1,
       [&] { return sgModifyRecordByIndex(Token(), table, 1, one.record(0), data.recordSize()); }, 1,
       "[rcd905] failed to get field 1"},
      {"sgGetRecordCount", 1, [&] { return sgGetRecordCount(Token(), table); }, 0xFFFFFFFFu,
       "[rcd1304] failed to get field 1"},
      {"sgGetRecordStatValueOfInterval", 1,
       [&] {
         return sgGetRecordStatValueOfInterval(Token(), table, 1, 0, 200, one.record(0),
                                               data.recordSize());
       },
       1, "[rcd1404] failed to get field 1"},
      {"sgGetRecord_Day", 1,
       [&] { return sgGetRecord_Day(Token(), table, 0, 0, 0, 0, 0, one.data(), one.bytes()); }, 1,
       "[rcd504] failed to get field 1"},
      {"sgGetRecord", 0, [&] { return sgGetRecord(Token(), table, &block, &size, nullptr); }, 1,
       "[rcd205] failed to alloc memory"},
      {"sgGetRecord rowset", 98, [&] { return sgGetRecord(Token(), table, &block, &size, nullptr); },
       1, "[rcd206] failed to get field 1"},
      {"sgGetRecord huge", 99,
       [&] { return sgGetRecord(Token(), huge.info(), &block, &size, nullptr); }, 1,
       "[rcd205] failed to alloc memory"},
      {"sgGetRecordBySQL", 0,
       [&] {
         const std::string select = "select * from " + std::string(table->name);
         return sgGetRecordBySQL(Token(), table, select.c_str(), nullptr, &rows, &fields, &offsets,
                                 &text, &size);
       },
       1, "[rcd1504] failed to alloc memory"},
  };
  // Each column type has its own serial: id, time, ms, modify, float, integer, text.
  for (SQLUSMALLINT column = 1; column <= 7; ++column)
    cases.push_back({"sgGetRecord", column,
                     [&] { return sgGetRecord(Token(), table, &block, &size, nullptr); }, 1,
                     "[rcd" + std::to_string(205 + column) + "] failed to get field " +
                         std::to_string(column)});
  // The text block's steps: its first allocation, then its growth while the
  // names (30 of 60 characters), or the cells (8 of 250), are appended.
  std::string names, cells;
  for (int k = 10; k < 40; ++k) {
    names += ", `id` as `" + std::string(58, 'n') + std::to_string(k) + "`";
    if (k < 18) cells += ", '" + std::string(250, 'c') + "' as `v" + std::to_string(k) + "`";
  }
  const std::string from = " from `" + std::string(table->name) + "`";
  for (auto [select, granted, serial] : {std::tuple{"*" + from, 1, 1505},
                                         {names.substr(2) + from, 2, 1507},
                                         {cells.substr(2) + from, 2, 1509}}) {
    cases.push_back({"sgGetRecordBySQL", 0,
                     [&, sql = DialectTemplate(DialectOf(kind()), ("select " + select).c_str())] {
                       return sgGetRecordBySQL(Token(), table, sql.c_str(), nullptr, &rows,
                                               &fields, &offsets, &text, &size);
                     },
                     1, "[rcd" + std::to_string(serial) + "] failed to alloc memory", granted});
  }
  if (kind() != 1 && kind() != 6)
    cases.push_back({"sgBatchSetRecord", 1,
                     [&] { return sgBatchSetRecord(Token(), table, records.data(), records.bytes()); },
                     1, "[rcd1706] failed to get field 1"});
  // Each case under its fault: result, text and a closed connection.
  for (const FaultCase& fault : cases) {
    failingColumn = fault.failingColumn;
    connects = disconnects = 0;
    OdbcOverride odbc;
    odbc->GetData = FailingGetData;
    odbc->FetchScroll = FailingFetchScroll;
    odbc->DriverConnect = CountedConnect;
    odbc->Connect = CountedSqlConnect;
    odbc->Disconnect = CountedDisconnect;
    blocksGranted = fault.blocksGranted;
    auto refuse = [](size_t count, size_t size) -> void* {
      return blocksGranted-- > 0 ? std::calloc(count, size) : nullptr;
    };
    auto refuseGrowth = [](void* block, size_t size) -> void* {
      return blocksGranted-- > 0 ? std::realloc(block, size) : nullptr;
    };
    SystemCallOverride noMemory(systemCalls.calloc,
                                fault.failingColumn == 0 ? +refuse : systemCalls.calloc);
    SystemCallOverride noGrowth(systemCalls.realloc,
                                fault.failingColumn == 0 ? +refuseGrowth : systemCalls.realloc);
    EXPECT_EQ(fault.call(), fault.result) << fault.name;
    EXPECT_EQ(dbGetLastError(), fault.error) << fault.name;
    EXPECT_GT(connects, 0) << fault.name;
    EXPECT_EQ(disconnects, connects) << fault.name << ": a connection was left open";
  }
}

INSTANTIATE_TEST_SUITE_P(Databases, FailurePathTest, ::testing::ValuesIn(Databases({3})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
