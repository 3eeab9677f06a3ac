#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "core/sql_text.h"
#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

class SqlTest : public DatabaseTest {
 protected:
  static void SetUpTestSuite() {
    // UTC+8 without summer time, in the only form the Windows C runtime reads.
    putenv(const_cast<char*>("TZ=CST-8"));
    tzset();
  }
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    table_ = DataTable(DropAtEnd(UniqueTableName("sql")), {{"a", 3}, {"s", 12}});
    ASSERT_EQ(sgEnsureTableExist(Token(), table_.info(), nullptr, 0), 0u);
  }

  // A select of `columns` (backtick-quoted) from the test table, in the database's quoting.
  std::string Select(const std::string& columns, const std::string& tail = "") const {
    return DialectTemplate(DialectOf(kind()),
                           ("select " + columns + " from `" + table_.info()->name + "`" + tail).c_str());
  }
  void Insert(uint32_t time, double a, const std::string& s) {
    RecordBuffer record(table_.recordSize(), 1);
    record.Put(0, 4, time);
    record.Put(0, 16, a);
    record.PutText(0, 24, s);
    ASSERT_EQ(sgSetRecord(Token(), table_.info(), record.record(0), record.bytes()), 0u)
        << dbGetLastError();
  }

  DataTable table_{"", {}};
};

TEST_P(SqlTest, DataTableRowsBecomeTextWithLocalDateTimes) {
  // No row: no text, and the counts and offsets as the caller left them.
  TextTable none;
  ASSERT_EQ(none.Query(Select("*")), 0u) << dbGetLastError();
  EXPECT_EQ(none.text, nullptr);
  EXPECT_EQ(none.textLength, 0u);
  EXPECT_EQ(none.rowCount + none.fieldCount, 99u + 99u);
  EXPECT_EQ(reinterpret_cast<char*>(none.offsets), TextTable::kUntouched);

  Insert(1714521600, 1.5, "first");
  Insert(1714525261, -2.25, "second");
  TextTable out;
  ASSERT_EQ(out.Query(Select("*", " order by `id`")), 0u) << dbGetLastError();
  EXPECT_EQ(out.rowCount, 2u);
  ASSERT_EQ(out.fieldCount, 3u);
  EXPECT_EQ(out.Row(0), (Cells{"time", "a", "s"}));
  EXPECT_EQ(out.Row(1), (Cells{"2024-05-01 08:00:00", "1.5", "first"}));
  EXPECT_EQ(out.Row(2), (Cells{"2024-05-01 09:01:01", "-2.25", "second"}));

  // The offsets table has room for all 6 result columns; its unused entries are zero.
  EXPECT_EQ(out.textLength, out.offsets[8] + std::strlen(out.text + out.offsets[8]) + 1);
  for (uint32_t entry = 9; entry < 18; ++entry) EXPECT_EQ(out.offsets[entry], 0u);

  TextTable fixedOnly;
  ASSERT_EQ(fixedOnly.Query(Select("`id`, `ms`, `modify`")), 0u);
  EXPECT_EQ(fixedOnly.rowCount, 2u);
  EXPECT_EQ(fixedOnly.fieldCount, 0u);
  EXPECT_EQ(fixedOnly.textLength, 0u);

  TextTable failed;
  EXPECT_TRUE(Refused(failed.Query("select 1", nullptr, nullptr), 1, "[rcd1501] invalid parameter"));
  const std::string missing = "select * from " + std::string(table_.info()->name) + "_missing";
  EXPECT_TRUE(Refused(failed.Query(missing), 1, "[rcd1503] failed to open table: " + missing));
  EXPECT_EQ(failed.text, TextTable::kUntouched);
}

TEST_P(SqlTest, TimesOutsideTheDateWindowAndListedTimeColumns) {
  for (uint32_t time : {0u, 1262275200u, 1262275201u, 2051193600u}) Insert(time, 0, "-");
  TextTable out;
  const char* list = "t1;T2;t3";
  const std::string times = "`time`, `time` as `t1`, `time` as `t2`, `time` as `t3`";
  ASSERT_EQ(out.Query(Select(times, " order by `id`"), list), 0u) << dbGetLastError();
  ASSERT_EQ(out.fieldCount, 4u);
  EXPECT_EQ(out.Row(0), (Cells{"time", "t1", "t2", "t3"}));
  // Outside the window a cell holds what a second read gives: the number, or
  // nothing on drivers that read a column only once.
  const char* numbers[] = {"0", "1262275200", "", "2051193600"};
  for (uint32_t row : {1u, 2u, 4u})
    for (const std::string& cell : out.Row(row))
      EXPECT_TRUE(cell.empty() || cell == numbers[row - 1]) << cell;
  const std::string date = "2010-01-01 00:00:01";
  EXPECT_EQ(out.Row(3), (Cells{date, date, "1262275201", date}));
}

TEST_P(SqlTest, CallersSelectKeepsItsOrderAcrossPagesAndItsColumns) {
  if (kind() != 2 && kind() != 5) GTEST_SKIP() << "no batches on SQLite under kinds 1 and 4";
  // More rows than a first page, in the caller's own order.
  constexpr uint32_t kRows = 10050;
  constexpr uint32_t kBatch = kRows / 5;  // as many texts as a batch binds
  RecordBuffer records(table_.recordSize(), kBatch);
  for (uint32_t first = 0; first < kRows; first += kBatch) {
    for (uint32_t k = 0; k < kBatch; ++k) records.Put(k, 16, first + k + 0.5);
    ASSERT_EQ(sgBatchSetRecord(Token(), table_.info(), records.data(), records.bytes()), 0u)
        << dbGetLastError();
  }
  TextTable out;
  ASSERT_EQ(out.Query(Select("`id` as `n`, `a`", " order by `id` desc")), 0u) << dbGetLastError();
  ASSERT_EQ(out.rowCount, kRows);
  void* block = nullptr;
  uint32_t size = 0;
  const std::string all = Select("*", " order by `id` desc");
  ASSERT_EQ(sgGetRecord(Token(), table_.info(), &block, &size, all.c_str()), 0u)
      << dbGetLastError();
  ASSERT_EQ(size, kRows * table_.recordSize());
  for (uint32_t k = 0, id = kRows; k < kRows; ++k, --id) {
    ASSERT_EQ(out.Row(k + 1), (Cells{std::to_string(id), std::to_string(id - 1) + ".5"}));
    uint32_t blockId = 0;
    std::memcpy(&blockId, static_cast<char*>(block) + size_t{k} * table_.recordSize(), 4);
    ASSERT_EQ(blockId, id);
  }
  std::free(block);

  // Columns no table can hold are read whole as the caller's select gives them.
  TextTable twice;
  ASSERT_EQ(twice.Query(Select("`a`, `a`", " order by `id`")), 0u) << dbGetLastError();
  ASSERT_EQ(twice.rowCount, kRows);
  EXPECT_EQ(twice.Row(0), (Cells{"a", "a"}));
  EXPECT_EQ(twice.Row(kRows), (Cells{"10049.5", "10049.5"}));
  // A text that is no select runs once.
  const std::string update =
      "update `" + std::string(table_.info()->name) + "` set `a` = `a` + 1 where `id` = 1";
  ASSERT_EQ(TextTable().Query(DialectTemplate(DialectOf(kind()), update.c_str())), 0u)
      << dbGetLastError();
  TextTable updated;
  ASSERT_EQ(updated.Query(Select("`a`", " where `id` = 1")), 0u) << dbGetLastError();
  EXPECT_EQ(updated.Row(1), (Cells{"1.5"}));

  // Kept rows never reach the next call of a pooled session.
  ASSERT_EQ(dbInitialize((GetParam().Config() + ";pool").c_str()), 0u);
  ASSERT_EQ(TextTable().Query(Select("`a`")), 0u) << dbGetLastError();
  const std::string kept =
      DialectTemplate(DialectOf(kind()), "select * from `#scadastore caller rows`");
  EXPECT_TRUE(Refused(TextTable().Query(kept), 1, "[rcd1503] failed to open table"));
  ASSERT_EQ(dbInitialize(GetParam().Config().c_str()), 0u);
}

INSTANTIATE_TEST_SUITE_P(Databases, SqlTest, ::testing::ValuesIn(Databases({1, 4, 5})), DatabaseName);

}  // namespace
}  // namespace scadastore::testing
