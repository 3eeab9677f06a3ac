// Every export refuses null pointers before it connects: the documented failure
// value and, where the export writes one, its "[...01] invalid parameter" text.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "scadastore.h"

namespace {

struct Case {
  const char* name;
  std::function<uint32_t()> call;
  uint32_t failure;
  const char* code;  // expected last-error code, or nullptr for exports that write none
};

TEST(NullArguments, EveryExportRefusesThemWithItsCode) {
  CallerToken token = reinterpret_cast<CallerToken>(0x1);
  DataTableInfo* info = nullptr;
  void* block = nullptr;
  uint32_t size = 0, rows = 0, fields = 0;
  uint32_t* offsets = nullptr;
  char* text = nullptr;
  AlarmRecord* alarms = nullptr;
  LogRecord* logs = nullptr;
  std::vector<Case> cases = {
      {"dbRemoveTable", [&] { return dbRemoveTable(nullptr, "t", nullptr, 0); }, 1, nullptr},
      {"almEnsureTableExist", [&] { return almEnsureTableExist(token, nullptr); }, 1, nullptr},
      {"almSetAlarm", [&] { return almSetAlarm(token, "t", nullptr, 364); }, 1, "[alm101]"},
      {"almGetAllAlarm", [&] { return almGetAllAlarm(nullptr, "t", nullptr, 364); }, 1, "[alm201]"},
      {"almGetAlarmByQuery", [&] { return almGetAlarmByQuery(token, "t", nullptr, &alarms, &size); }, 1, "[alm301]"},
      {"almGetAlarmCount", [&] { return almGetAlarmCount(token, nullptr); }, 0, "[alm401]"},
      {"almConfirmAlarm", [&] { return almConfirmAlarm(token, nullptr, 1, 1); }, 1, "[alm501]"},
      {"almDeleteAlarm", [&] { return almDeleteAlarm(token, "t", nullptr); }, 1, "[alm601]"},
      {"almGetLastID", [&] { return almGetLastID(nullptr, "t"); }, 0, "[alm701]"},
      {"almSetRecoverAlarm", [&] { return almSetRecoverAlarm(token, "t", 0, 1); }, 1, "[alm801]"},
      {"logEnsureTableExist", [&] { return logEnsureTableExist(nullptr, "t"); }, 1, nullptr},
      {"logSetLog", [&] { return logSetLog(token, "t", nullptr, 914); }, 1, "[log101]"},
      {"logGetAllLog", [&] { return logGetAllLog(token, nullptr, nullptr, 914); }, 1, "[log201]"},
      {"logGetLogByTime", [&] { return logGetLogByTime(token, nullptr, 1, 2, &logs, &size); }, 1, "[log301]"},
      {"logGetLogCount", [&] { return logGetLogCount(nullptr, "t"); }, 0, "[log401]"},
      {"logGetLastID", [&] { return logGetLastID(token, nullptr); }, 0, "[log501]"},
      {"logDeleteLog", [&] { return logDeleteLog(token, "t", nullptr); }, 1, "[log601]"},
      {"sgEnsureTableExist", [&] { return sgEnsureTableExist(token, nullptr, nullptr, 0); }, 1, nullptr},
      {"sgSetRecord", [&] { return sgSetRecord(token, info, nullptr, 64); }, 1, "[rcd101]"},
      {"sgGetRecord", [&] { return sgGetRecord(nullptr, info, &block, &size, nullptr); }, 1, "[rcd201]"},
      {"sgGetAllRecordOfInterval", [&] { return sgGetAllRecordOfInterval(token, nullptr, 1, 2, &block, &size); }, 1, "[rcd301]"},
      {"sgGetRecordByTime", [&] { return sgGetRecordByTime(token, nullptr, 1, nullptr, 64); }, 1, "[rcd401]"},
      {"sgGetRecord_Day", [&] { return sgGetRecord_Day(token, nullptr, 0, 0, 0, 0, 0, nullptr, 0); }, 1, "[rcd501]"},
      {"sgGetRecord_Month", [&] { return sgGetRecord_Month(token, nullptr, 0, 0, 0, 0, 30, nullptr, 0); }, 1, "[rcd601]"},
      {"sgGetRecord_Year", [&] { return sgGetRecord_Year(token, nullptr, 0, 0, 2024, nullptr, 0); }, 1, "[rcd701]"},
      {"sgDeleteRecord", [&] { return sgDeleteRecord(nullptr, info, nullptr); }, 1, "[rcd801]"},
      {"sgGetIdByIndex", [&] { return sgGetIdByIndex(token, nullptr, 1); }, 0, "[rcd901]"},
      {"sgGetRecordByIndex", [&] { return sgGetRecordByIndex(token, nullptr, 1, nullptr, 64); }, 1, "[rcd1001]"},
      {"sgModifyRecordByIndex", [&] { return sgModifyRecordByIndex(token, nullptr, 1, nullptr, 64); }, 1, "[rcd1101]"},
      {"sgDeleteRecordByIndex", [&] { return sgDeleteRecordByIndex(token, nullptr, 1); }, 1, "[rcd1201]"},
      {"sgGetRecordCount", [&] { return sgGetRecordCount(nullptr, info); }, 0xFFFFFFFFu, "[rcd1301]"},
      {"sgGetRecordStatValueOfInterval", [&] { return sgGetRecordStatValueOfInterval(token, nullptr, 1, 0, 10, nullptr, 64); }, 1, "[rcd1401]"},
      {"sgGetRecordBySQL", [&] { return sgGetRecordBySQL(token, "t", nullptr, nullptr, &rows, &fields, &offsets, &text, &size); }, 1, "[rcd1501]"},
      // Each output pointer, even those an empty result would leave unwritten.
      {"sgGetRecordBySQL rowCount", [&] { return sgGetRecordBySQL(token, "t", "select 1", nullptr, nullptr, &fields, &offsets, &text, &size); }, 1, "[rcd1501]"},
      {"sgGetRecordBySQL fieldCount", [&] { return sgGetRecordBySQL(token, "t", "select 1", nullptr, &rows, nullptr, &offsets, &text, &size); }, 1, "[rcd1501]"},
      {"sgGetRecordBySQL offsets", [&] { return sgGetRecordBySQL(token, "t", "select 1", nullptr, &rows, &fields, nullptr, &text, &size); }, 1, "[rcd1501]"},
      {"sgGetRecordBySQL text", [&] { return sgGetRecordBySQL(token, "t", "select 1", nullptr, &rows, &fields, &offsets, nullptr, &size); }, 1, "[rcd1501]"},
      {"sgGetRecordBySQL textLength", [&] { return sgGetRecordBySQL(token, "t", "select 1", nullptr, &rows, &fields, &offsets, &text, nullptr); }, 1, "[rcd1501]"},
      {"sgOperateRecord", [&] { return sgOperateRecord(token, info, nullptr); }, 1, "[rcd1601]"},
      {"sgBatchSetRecord", [&] { return sgBatchSetRecord(token, nullptr, nullptr, 64); }, 1, "[rcd1701]"},
  };
  for (const Case& c : cases) {
    std::string before = dbGetLastError();
    EXPECT_EQ(c.call(), c.failure) << c.name;
    std::string after = dbGetLastError();
    if (c.code == nullptr) {
      EXPECT_EQ(after, before) << c.name << " must not write the last error";
    } else {
      EXPECT_EQ(after, std::string(c.code) + " invalid parameter") << c.name;
    }
  }
  EXPECT_EQ(dbIsTableExist(nullptr, "t"), 0);
  EXPECT_EQ(dbInitialize(nullptr), 1u);
}

}  // namespace
