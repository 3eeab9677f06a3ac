#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>
#include <vector>

#include "core/sql_text.h"
#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

constexpr uint32_t kDay = 1704067200;  // 2024-01-01 00:00:00 UTC
constexpr uint64_t kCallerBytes = 0xABABABABABABABABull;
// Value places: a float, n integer, s text, b float.
constexpr size_t kA = 16, kN = 24, kS = 28, kB = 284;

class StatTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    table_ = DataTable(DropAtEnd(UniqueTableName("stat")), {{"a", 3}, {"n", 4}, {"s", 12}, {"b", 3}});
    ASSERT_EQ(sgEnsureTableExist(Token(), info(), nullptr, 0), 0u);
  }

  // Rows of (time, a, b), values exact in the 4-byte floats of MariaDB.
  void Insert(const std::vector<std::tuple<uint32_t, double, double>>& rows) {
    RecordBuffer record(table_.recordSize(), 1);
    for (auto [time, a, b] : rows) {
      record.Put(0, 4, time);
      record.Put(0, kA, a);
      record.Put(0, kB, b);
      ASSERT_EQ(sgSetRecord(Token(), info(), record.record(0), record.bytes()), 0u) << dbGetLastError();
    }
  }

  DataTableInfo* info() { return table_.info(); }
  RecordBuffer CallerBuffer(size_t slots) {
    RecordBuffer buffer(table_.recordSize(), slots);
    std::memset(buffer.data(), 0xAB, buffer.bytes());
    return buffer;
  }
  // The head is set; integer and text places keep the caller's bytes.
  static void ExpectSlot(const RecordBuffer& slots, size_t k, uint32_t time) {
    SCOPED_TRACE(k);
    EXPECT_EQ(slots.Get<uint32_t>(k, 0) + slots.Get<uint32_t>(k, 8) + slots.Get<uint32_t>(k, 12), 0u);
    EXPECT_EQ(slots.Get<uint32_t>(k, 4), time);
    EXPECT_EQ(slots.Get<uint32_t>(k, kN), 0xABABABABu);
    EXPECT_EQ(slots.Get<uint64_t>(k, kS + 248), kCallerBytes);
  }
  static bool KeepsCallerValues(const RecordBuffer& slots, size_t k) {
    return slots.Get<uint64_t>(k, kA) == kCallerBytes && slots.Get<uint64_t>(k, kB) == kCallerBytes;
  }
  uint32_t Interval(uint32_t statKind, int32_t start, int32_t end, RecordBuffer& record) {
    return sgGetRecordStatValueOfInterval(Token(), info(), statKind, start, end, record.record(0),
                                          table_.recordSize());
  }

  DataTable table_{"", {}};
};

TEST_P(StatTest, IntervalAppliesAStatisticOrRefusesWithCodedErrors) {
  // The row at the interval's end belongs to the next interval.
  Insert({{kDay, 1, 10}, {kDay + 10, 4, 20}, {kDay + 100, 2.5, 30}, {kDay + 3600, 100, 100}});
  struct { uint32_t statKind, statMode; double a, b; } cases[] = {
      {1, 3, 4, 30}, {2, 1, 1, 10}, {3, 1, 2.5, 20}, {4, 1, 7.5, 60}, {9, 2, 1, 10}, {0, 5, 7.5, 60}};
  for (auto c : cases) {
    SCOPED_TRACE("statKind " + std::to_string(c.statKind));
    info()->statMode = c.statMode;
    RecordBuffer record = CallerBuffer(1);
    ASSERT_EQ(Interval(c.statKind, kDay, kDay + 3600, record), 0u) << dbGetLastError();
    ExpectSlot(record, 0, kDay);
    EXPECT_EQ(record.Get<double>(0, kA), c.a);
    EXPECT_EQ(record.Get<double>(0, kB), c.b);
  }

  // Bad arguments are refused with coded errors.
  const uint32_t size = table_.recordSize();
  RecordBuffer record = CallerBuffer(24);
  EXPECT_TRUE(Refused(
      sgGetRecordStatValueOfInterval(Token(), info(), 1, 0, 10, record.record(0), size + 1), 1,
      "[rcd1401] invalid parameter"));
  EXPECT_TRUE(Refused(Interval(1, 11, 10, record), 1, "[rcd1401] invalid parameter"));
  EXPECT_EQ(record.Get<uint32_t>(0, 4), 0xABABABABu);
  // Equal bounds, or a negative start before a positive end, fail in the
  // builder after the head is written.
  EXPECT_TRUE(Refused(Interval(1, 10, 10, record), 1, "[rcd1405] failed to create sql: "));
  EXPECT_EQ(record.Get<uint32_t>(0, 4), 10u);
  EXPECT_TRUE(Refused(Interval(1, -5, 10, record), 1, "[rcd1405] failed to create sql: "));

  EXPECT_TRUE(Refused(sgGetRecord_Day(Token(), info(), 0, kDay, 0, 0, 0, record.data(), 23 * size), 1,
                     "[rcd501] invalid parameter"));
  EXPECT_TRUE(Refused(sgGetRecord_Month(Token(), info(), 0, kDay, 0, 0, -1, record.data(), 0), 1,
                     "[rcd601] invalid parameter"));
  EXPECT_TRUE(Refused(sgGetRecord_Year(Token(), info(), 0, kDay, 2024, nullptr, 12 * size), 1,
                     "[rcd701] invalid parameter"));
  EXPECT_EQ(sgGetRecord_Month(Token(), info(), 0, kDay, 0, 0, 0, record.data(), 0), 0u);
  // A recordSize too small for the values would overrun the caller's buffer.
  info()->recordSize = 100;
  EXPECT_TRUE(Refused(sgGetRecord_Month(Token(), info(), 0, kDay, 0, 0, 1, record.data(), 100), 1,
                     "[rcd601] invalid parameter"));

  const std::string name = info()->name;
  DataTable integers(name, {{"n", 4}, {"s", 12}});
  const std::string select = "select from `" + name + "` where (`time`>=0) and (`time`<10)";
  EXPECT_TRUE(Refused(sgGetRecordStatValueOfInterval(Token(), integers.info(), 1, 0, 10,
                                                    record.record(0), integers.recordSize()), 1,
                     "[rcd1403] failed to open table: " +
                         DialectTemplate(DialectOf(kind()), select.c_str())));
  const DataTableInfo* none = integers.info();
  EXPECT_TRUE(Refused(sgGetRecord_Day(Token(), none, 0, kDay, 0, 0, 0, record.data(),
                                      24 * integers.recordSize()), 1, "[rcd503] failed to open table: "));
  EXPECT_TRUE(Refused(sgGetRecord_Month(Token(), none, 0, kDay, 0, 0, 1, record.data(),
                                        integers.recordSize()), 1, "[rcd603] failed to open table: "));
  EXPECT_TRUE(Refused(sgGetRecord_Year(Token(), none, 0, kDay, 2024, record.data(),
                                       12 * integers.recordSize()), 1, "[rcd703] failed to open table: "));
}

TEST_P(StatTest, DayAndMonthStepByHoursAndDays) {
  Insert({{kDay, 1, 2}, {kDay + 3599, 3, 4}, {kDay + 3600, 5, 6}, {kDay + 5 * 3600 + 7, 8, 9},
          {kDay + 86400, 50, 50}});
  info()->statMode = 5;
  RecordBuffer day = CallerBuffer(24);
  ASSERT_EQ(sgGetRecord_Day(Token(), info(), 7, kDay, 7, 7, 7, day.data(), day.bytes()), 0u)
      << dbGetLastError();
  for (size_t h = 0; h < 24; ++h) {
    ExpectSlot(day, h, kDay + 3600 * h);
    EXPECT_EQ(KeepsCallerValues(day, h), h != 0 && h != 1 && h != 5) << "hour " << h;
  }
  EXPECT_EQ(day.Get<double>(0, kA), 4);
  EXPECT_EQ(day.Get<double>(1, kB), 6);
  EXPECT_EQ(day.Get<double>(5, kB), 9);

  info()->statMode = 0;
  RecordBuffer month = CallerBuffer(3);
  ASSERT_EQ(sgGetRecord_Month(Token(), info(), 0, kDay, 0, 0, 3, month.data(), month.bytes()), 0u)
      << dbGetLastError();
  for (size_t d = 0; d < 3; ++d) ExpectSlot(month, d, kDay + 86400 * d);
  EXPECT_EQ(month.Get<double>(0, kA), 17 / 4.0);
  EXPECT_EQ(month.Get<double>(1, kA), 50);
  EXPECT_TRUE(KeepsCallerValues(month, 2));
}

TEST_P(StatTest, YearFollowsTheMonthLengthsOfItsYear) {
  // Day 59 after 1 January is 1 March in a common year, 29 February in a leap
  // year: 2000 is one, 2100 is not.
  Insert({{kDay + 59 * 86400, 5, 5}});
  info()->statMode = 1;
  for (int year : {2000, 2100}) {
    SCOPED_TRACE(year);
    RecordBuffer slots = CallerBuffer(12);
    ASSERT_EQ(sgGetRecord_Year(Token(), info(), 0, kDay, year, slots.data(), slots.bytes()), 0u)
        << dbGetLastError();
    uint32_t march = year == 2000 ? 60 : 59;
    ExpectSlot(slots, 1, kDay + 31 * 86400);
    ExpectSlot(slots, 2, kDay + march * 86400);
    ExpectSlot(slots, 11, kDay + (march + 275) * 86400);
    size_t filled = year == 2000 ? 1 : 2;
    for (size_t m = 0; m < 12; ++m) EXPECT_EQ(KeepsCallerValues(slots, m), m != filled) << m;
    EXPECT_EQ(slots.Get<double>(filled, kA), 5);
  }
}

INSTANTIATE_TEST_SUITE_P(Databases, StatTest, ::testing::ValuesIn(Databases({1, 4, 5})), DatabaseName);

}  // namespace
}  // namespace scadastore::testing
