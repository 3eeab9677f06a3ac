// The coded failure texts of the exports: "[<family><number><serial>] text".
// Every export that writes one has a row below with its family, number, the
// result it returns on failure and the serial of each message it writes, so
// "[rcd1704]" is the row of "rcd" 17 whose message has serial 4 (createSql).
// kInvalidParameter (01) and kOpenDsn (02) are the same in every row. A message an export numbers
// more than once takes the serials after its first, in the order the row's comment gives.
//
// dbInitialize, dbUninitialize, dbGetLastError, dbIsTableExist, dbRemoveTable,
// almEnsureTableExist, logEnsureTableExist and sgEnsureTableExist write no
// coded text.
#pragma once

#include <cstdint>

namespace scadastore {

// The messages, each with its fixed text.
enum class Serial {
  kInvalidParameter,  // "invalid parameter", always 01
  kOpenDsn,           // "failed to open DSN: %s" (the DSN), always 02
  kOpenTable,         // "failed to open table: %s" (the statement)
  kExecError,         // "exec error: %s, sql: %s" (connection text, statement)
  kGetField,          // "failed to get field %d" (the column)
  kAllocMemory,       // "failed to alloc memory"
  kCreateSql,         // "failed to create sql: %s", or without ": %s"
  kNoRecord,          // "no record"
  kInvalidTable,      // "invalid Norvak data table"
  kIndexPastEnd,      // "invalid parameter": a position past the last row
};

// The serial each message has in one export; 0 for those it never writes.
struct Serials {
  int openTable = 0;
  int execError = 0;
  int getField = 0;
  int allocMemory = 0;
  int createSql = 0;
  int noRecord = 0;
  int invalidTable = 0;
  int indexPastEnd = 0;

  constexpr int Of(Serial serial) const {
    switch (serial) {
      case Serial::kInvalidParameter: return 1;
      case Serial::kOpenDsn: return 2;
      case Serial::kOpenTable: return openTable;
      case Serial::kExecError: return execError;
      case Serial::kGetField: return getField;
      case Serial::kAllocMemory: return allocMemory;
      case Serial::kCreateSql: return createSql;
      case Serial::kNoRecord: return noRecord;
      case Serial::kInvalidTable: return invalidTable;
      case Serial::kIndexPastEnd: return indexPastEnd;
    }
    return 0;
  }
};

struct ExportCode {
  const char* family;
  int number;
  uint32_t failure;  // the export's result on any failure
  Serials serials;
};

namespace Export {

inline constexpr ExportCode kAlmSetAlarm{"alm", 1, 1, {.openTable = 3, .execError = 4}};
inline constexpr ExportCode kAlmGetAllAlarm{"alm", 2, 1, {.openTable = 3}};
inline constexpr ExportCode kAlmGetAlarmByQuery{"alm", 3, 1, {.openTable = 3, .allocMemory = 4}};
inline constexpr ExportCode kAlmGetAlarmCount{"alm", 4, 0, {.openTable = 3}};
inline constexpr ExportCode kAlmConfirmAlarm{"alm", 5, 1, {.execError = 3}};
inline constexpr ExportCode kAlmDeleteAlarm{"alm", 6, 1, {.execError = 3}};
inline constexpr ExportCode kAlmGetLastID{"alm", 7, 0, {.openTable = 3, .getField = 4}};
inline constexpr ExportCode kAlmSetRecoverAlarm{"alm", 8, 1, {.execError = 3}};

inline constexpr ExportCode kLogSetLog{"log", 1, 1, {.openTable = 3, .execError = 4}};
inline constexpr ExportCode kLogGetAllLog{"log", 2, 1, {.openTable = 3}};
inline constexpr ExportCode kLogGetLogByTime{"log", 3, 1, {.openTable = 3, .allocMemory = 4}};
inline constexpr ExportCode kLogGetLogCount{"log", 4, 0, {.openTable = 3}};
inline constexpr ExportCode kLogGetLastID{"log", 5, 0, {.openTable = 3, .getField = 4}};
inline constexpr ExportCode kLogDeleteLog{"log", 6, 1, {.execError = 3}};

inline constexpr ExportCode kSgSetRecord{
    "rcd", 1, 1, {.openTable = 3, .execError = 4, .getField = 5, .createSql = 6}};
// getField 06-12: the id, time, ms, modify, float, integer and text columns.
inline constexpr ExportCode kSgGetRecord{
    "rcd", 2, 1, {.openTable = 3, .getField = 6, .allocMemory = 5, .invalidTable = 4}};
// Runs sgGetRecord, whose [rcd2xx] codes pass through.
inline constexpr ExportCode kSgGetAllRecordOfInterval{"rcd", 3, 1, {}};
// getField 06-12 as sgGetRecord.
inline constexpr ExportCode kSgGetRecordByTime{
    "rcd", 4, 1, {.openTable = 3, .getField = 6, .noRecord = 5, .invalidTable = 4}};
inline constexpr ExportCode kSgGetRecordDay{
    "rcd", 5, 1, {.openTable = 3, .getField = 4, .createSql = 5}};
inline constexpr ExportCode kSgGetRecordMonth{
    "rcd", 6, 1, {.openTable = 3, .getField = 4, .createSql = 5}};
inline constexpr ExportCode kSgGetRecordYear{
    "rcd", 7, 1, {.openTable = 3, .getField = 4, .createSql = 5}};
inline constexpr ExportCode kSgDeleteRecord{"rcd", 8, 1, {.execError = 3}};
inline constexpr ExportCode kSgGetIdByIndex{
    "rcd", 9, 0, {.openTable = 3, .getField = 5, .indexPastEnd = 4}};
// getField 05-11 in sgGetRecord's order.
inline constexpr ExportCode kSgGetRecordByIndex{
    "rcd", 10, 1, {.openTable = 3, .getField = 5, .indexPastEnd = 4}};
// Runs sgGetIdByIndex first, whose [rcd9xx] codes pass through.
inline constexpr ExportCode kSgModifyRecordByIndex{"rcd", 11, 1, {.execError = 3, .createSql = 4}};
// Runs sgGetIdByIndex first, whose [rcd9xx] codes pass through.
inline constexpr ExportCode kSgDeleteRecordByIndex{"rcd", 12, 1, {.execError = 3}};
inline constexpr ExportCode kSgGetRecordCount{
    "rcd", 13, 0xFFFFFFFFu, {.openTable = 3, .getField = 4}};
inline constexpr ExportCode kSgGetRecordStatValueOfInterval{
    "rcd", 14, 1, {.openTable = 3, .getField = 4, .createSql = 5}};
// allocMemory 04 offsets, 05 text, 06 a name too large, 07 a name refused,
// 08 a cell too large, 09 a cell refused.
inline constexpr ExportCode kSgGetRecordBySQL{"rcd", 15, 1, {.openTable = 3, .allocMemory = 4}};
inline constexpr ExportCode kSgOperateRecord{"rcd", 16, 1, {.execError = 3}};
// createSql 04 is written without ": %s".
inline constexpr ExportCode kSgBatchSetRecord{
    "rcd", 17, 1, {.openTable = 3, .execError = 5, .getField = 6, .createSql = 4}};

}  // namespace Export
}  // namespace scadastore
