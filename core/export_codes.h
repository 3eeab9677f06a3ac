// The coded failure texts of the exports: "[<family><number><serial>] text".
// Every export that writes one has a row below with its family, number, the
// result it returns on failure and the serial of each message it writes, so
// "[rcd1704]" is the row of "rcd" 17 whose message has serial 4 (createSql).
// The comment above each row lists its codes, so that a code read in an
// error text (or in the public header's contracts) greps to its row.
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

// [alm101] [alm102] [alm103] [alm104]
inline constexpr ExportCode kAlmSetAlarm{"alm", 1, 1, {.openTable = 3, .execError = 4}};
// [alm201] [alm202] [alm203]
inline constexpr ExportCode kAlmGetAllAlarm{"alm", 2, 1, {.openTable = 3}};
// [alm301] [alm302] [alm303] [alm304]
inline constexpr ExportCode kAlmGetAlarmByQuery{"alm", 3, 1, {.openTable = 3, .allocMemory = 4}};
// [alm401] [alm402] [alm403]
inline constexpr ExportCode kAlmGetAlarmCount{"alm", 4, 0, {.openTable = 3}};
// [alm501] [alm502] [alm503]
inline constexpr ExportCode kAlmConfirmAlarm{"alm", 5, 1, {.execError = 3}};
// [alm601] [alm602] [alm603]
inline constexpr ExportCode kAlmDeleteAlarm{"alm", 6, 1, {.execError = 3}};
// [alm701] [alm702] [alm703] [alm704]
inline constexpr ExportCode kAlmGetLastID{"alm", 7, 0, {.openTable = 3, .getField = 4}};
// [alm801] [alm802] [alm803]
inline constexpr ExportCode kAlmSetRecoverAlarm{"alm", 8, 1, {.execError = 3}};

// [log101] [log102] [log103] [log104]
inline constexpr ExportCode kLogSetLog{"log", 1, 1, {.openTable = 3, .execError = 4}};
// [log201] [log202] [log203]
inline constexpr ExportCode kLogGetAllLog{"log", 2, 1, {.openTable = 3}};
// [log301] [log302] [log303] [log304]
inline constexpr ExportCode kLogGetLogByTime{"log", 3, 1, {.openTable = 3, .allocMemory = 4}};
// [log401] [log402] [log403]
inline constexpr ExportCode kLogGetLogCount{"log", 4, 0, {.openTable = 3}};
// [log501] [log502] [log503] [log504]
inline constexpr ExportCode kLogGetLastID{"log", 5, 0, {.openTable = 3, .getField = 4}};
// [log601] [log602] [log603]
inline constexpr ExportCode kLogDeleteLog{"log", 6, 1, {.execError = 3}};

// [rcd101] [rcd102] [rcd103] [rcd104] [rcd105] [rcd106]
inline constexpr ExportCode kSgSetRecord{
    "rcd", 1, 1, {.openTable = 3, .execError = 4, .getField = 5, .createSql = 6}};
// [rcd201] [rcd202] [rcd203] [rcd204] [rcd205]; getField for the id, time, ms,
// modify, float, integer and text columns: [rcd206] [rcd207] [rcd208] [rcd209]
// [rcd210] [rcd211] [rcd212]
inline constexpr ExportCode kSgGetRecord{
    "rcd", 2, 1, {.openTable = 3, .getField = 6, .allocMemory = 5, .invalidTable = 4}};
// Runs sgGetRecord, whose [rcd2xx] codes pass through.
// [rcd301]
inline constexpr ExportCode kSgGetAllRecordOfInterval{"rcd", 3, 1, {}};
// [rcd401] [rcd402] [rcd403] [rcd404] [rcd405]; getField in sgGetRecord's order:
// [rcd406] [rcd407] [rcd408] [rcd409] [rcd410] [rcd411] [rcd412]
inline constexpr ExportCode kSgGetRecordByTime{
    "rcd", 4, 1, {.openTable = 3, .getField = 6, .noRecord = 5, .invalidTable = 4}};
// [rcd501] [rcd502] [rcd503] [rcd504] [rcd505]
inline constexpr ExportCode kSgGetRecordDay{
    "rcd", 5, 1, {.openTable = 3, .getField = 4, .createSql = 5}};
// [rcd601] [rcd602] [rcd603] [rcd604] [rcd605]
inline constexpr ExportCode kSgGetRecordMonth{
    "rcd", 6, 1, {.openTable = 3, .getField = 4, .createSql = 5}};
// [rcd701] [rcd702] [rcd703] [rcd704] [rcd705]
inline constexpr ExportCode kSgGetRecordYear{
    "rcd", 7, 1, {.openTable = 3, .getField = 4, .createSql = 5}};
// [rcd801] [rcd802] [rcd803]
inline constexpr ExportCode kSgDeleteRecord{"rcd", 8, 1, {.execError = 3}};
// [rcd901] [rcd902] [rcd903] [rcd904] [rcd905]
inline constexpr ExportCode kSgGetIdByIndex{
    "rcd", 9, 0, {.openTable = 3, .getField = 5, .indexPastEnd = 4}};
// [rcd1001] [rcd1002] [rcd1003] [rcd1004]; getField in sgGetRecord's order:
// [rcd1005] [rcd1006] [rcd1007] [rcd1008] [rcd1009] [rcd1010] [rcd1011]
inline constexpr ExportCode kSgGetRecordByIndex{
    "rcd", 10, 1, {.openTable = 3, .getField = 5, .indexPastEnd = 4}};
// Runs sgGetIdByIndex first, whose [rcd9xx] codes pass through.
// [rcd1101] [rcd1102] [rcd1103] [rcd1104]
inline constexpr ExportCode kSgModifyRecordByIndex{"rcd", 11, 1, {.execError = 3, .createSql = 4}};
// Runs sgGetIdByIndex first, whose [rcd9xx] codes pass through.
// [rcd1201] [rcd1202] [rcd1203]
inline constexpr ExportCode kSgDeleteRecordByIndex{"rcd", 12, 1, {.execError = 3}};
// [rcd1301] [rcd1302] [rcd1303] [rcd1304]
inline constexpr ExportCode kSgGetRecordCount{
    "rcd", 13, 0xFFFFFFFFu, {.openTable = 3, .getField = 4}};
// [rcd1401] [rcd1402] [rcd1403] [rcd1404] [rcd1405]
inline constexpr ExportCode kSgGetRecordStatValueOfInterval{
    "rcd", 14, 1, {.openTable = 3, .getField = 4, .createSql = 5}};
// [rcd1501] [rcd1502] [rcd1503]; allocMemory: [rcd1504] offsets, [rcd1505] text,
// [rcd1506] a name too large, [rcd1507] a name refused, [rcd1508] a cell too
// large, [rcd1509] a cell refused.
inline constexpr ExportCode kSgGetRecordBySQL{"rcd", 15, 1, {.openTable = 3, .allocMemory = 4}};
// [rcd1601] [rcd1602] [rcd1603]
inline constexpr ExportCode kSgOperateRecord{"rcd", 16, 1, {.execError = 3}};
// createSql 04 is written without ": %s".
// [rcd1701] [rcd1702] [rcd1703] [rcd1704] [rcd1705] [rcd1706]
inline constexpr ExportCode kSgBatchSetRecord{
    "rcd", 17, 1, {.openTable = 3, .execError = 5, .getField = 6, .createSql = 4}};

}  // namespace Export
}  // namespace scadastore
