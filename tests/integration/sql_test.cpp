#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <string>
#include <vector>

#include "core/sql_text.h"
#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

using Cells = std::vector<std::string>;
char* const kUntouched = reinterpret_cast<char*>(0x10);

// The outputs of one sgGetRecordBySQL call, preset to values it must overwrite.
struct TextTable {
  uint32_t result = 99, rowCount = 99, fieldCount = 99, textLength = 99;
  uint32_t* offsets = reinterpret_cast<uint32_t*>(kUntouched);
  char* text = kUntouched;

  ~TextTable() {
    if (text != kUntouched && text != nullptr) std::free(offsets);
    if (text != kUntouched) std::free(text);
  }
  Cells Row(uint32_t row) const {
    Cells cells;
    for (uint32_t f = 0; f < fieldCount; ++f) cells.push_back(text + offsets[row * fieldCount + f]);
    return cells;
  }
};

class SqlTest : public DatabaseTest {
 protected:
  static void SetUpTestSuite() {
    setenv("TZ", "Asia/Shanghai", 1);
    tzset();
  }
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    name_ = DropAtEnd(UniqueTableName("sql"));
    table_ = std::make_unique<DataTable>(name_, std::vector<std::pair<std::string, uint32_t>>{
                                                    {"a", 3}, {"s", 12}});
    ASSERT_EQ(sgEnsureTableExist(Token(), table_->info(), nullptr, 0), 0u);
  }

  std::string Sql(const std::string& backtickSql) {
    return DialectTemplate(DialectOf(kind()), backtickSql.c_str());
  }
  void Insert(uint32_t time, double a, const std::string& s) {
    RecordBuffer record(table_->recordSize(), 1);
    record.Put(0, 4, time);
    record.Put(0, 16, a);
    record.PutText(0, 24, s);
    ASSERT_EQ(sgSetRecord(Token(), table_->info(), record.record(0), record.bytes()), 0u)
        << dbGetLastError();
  }
  uint32_t Query(TextTable& out, const std::string& sql, const char* timeColumns = nullptr) {
    return out.result = sgGetRecordBySQL(Token(), "-", sql.c_str(), timeColumns, &out.rowCount,
                                         &out.fieldCount, &out.offsets, &out.text, &out.textLength);
  }

  std::string name_;
  std::unique_ptr<DataTable> table_;
};

TEST_P(SqlTest, DataTableRowsBecomeTextWithLocalDateTimes) {
  Insert(1714521600, 1.5, "first");
  Insert(1714525261, -2.25, "second");
  TextTable out;
  ASSERT_EQ(Query(out, Sql("select * from `" + name_ + "` order by `id`")), 0u) << dbGetLastError();
  EXPECT_EQ(out.rowCount, 2u);
  ASSERT_EQ(out.fieldCount, 3u);
  EXPECT_EQ(out.Row(0), (Cells{"time", "a", "s"}));
  EXPECT_EQ(out.Row(1), (Cells{"2024-05-01 08:00:00", "1.5", "first"}));
  EXPECT_EQ(out.Row(2), (Cells{"2024-05-01 09:01:01", "-2.25", "second"}));

  // The cells stand back to back, each with its NUL; the offsets table has
  // room for all 6 result columns, and its unused entries are zero.
  uint32_t length = 0;
  for (uint32_t entry = 0; entry < 9; ++entry) {
    EXPECT_EQ(out.offsets[entry], length);
    length += static_cast<uint32_t>(std::strlen(out.text + length)) + 1;
  }
  EXPECT_EQ(out.textLength, length);
  for (uint32_t entry = 9; entry < 18; ++entry) EXPECT_EQ(out.offsets[entry], 0u);
}

TEST_P(SqlTest, EmptyResultsAndSkippedColumns) {
  TextTable none;
  ASSERT_EQ(Query(none, Sql("select * from `" + name_ + "`")), 0u) << dbGetLastError();
  EXPECT_EQ(none.text, nullptr);
  EXPECT_EQ(none.textLength, 0u);
  EXPECT_EQ(none.rowCount + none.fieldCount, 99u + 99u);
  EXPECT_EQ(reinterpret_cast<char*>(none.offsets), kUntouched);

  Insert(0, 1, "x");
  Insert(0, 2, "y");
  TextTable fixedOnly;
  ASSERT_EQ(Query(fixedOnly, Sql("select `id`, `ms`, `modify` from `" + name_ + "`")), 0u);
  EXPECT_EQ(fixedOnly.rowCount, 2u);
  EXPECT_EQ(fixedOnly.fieldCount, 0u);
  EXPECT_EQ(fixedOnly.textLength, 0u);

  // Only exact names are special: an ID in capitals is an ordinary column.
  TextTable capital;
  ASSERT_EQ(Query(capital, Sql("select `id` as `ID`, `s` from `" + name_ + "` order by `id`")), 0u);
  ASSERT_EQ(capital.fieldCount, 2u);
  EXPECT_EQ(capital.Row(0), (Cells{"ID", "s"}));
  EXPECT_EQ(capital.Row(2), (Cells{"2", "y"}));
}

TEST_P(SqlTest, TimesOutsideTheDateWindowAndListedTimeColumns) {
  Insert(0, 0, "a");
  Insert(1262275200, 0, "b");
  Insert(1262275201, 0, "c");
  Insert(2051193600, 0, "d");
  TextTable out;
  std::string list = "t1;;T2;" + std::string(64, 'x') + ";t3;";
  ASSERT_EQ(Query(out, Sql("select `time`, `time` as `t1`, `time` as `t2`, `time` as `t3` from `" +
                           name_ + "` order by `id`"), list.c_str()), 0u) << dbGetLastError();
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

TEST_P(SqlTest, FailuresAreCoded) {
  TextTable out;
  EXPECT_EQ(sgGetRecordBySQL(Token(), nullptr, "select 1", nullptr, &out.rowCount, &out.fieldCount,
                             &out.offsets, &out.text, &out.textLength), 1u);
  EXPECT_STREQ(dbGetLastError(), "[rcd1501] invalid parameter");
  std::string missing = "select * from " + name_ + "_missing";
  EXPECT_EQ(Query(out, missing), 1u);
  EXPECT_EQ(dbGetLastError(), "[rcd1503] failed to open table: " + missing);
  EXPECT_EQ(out.text, kUntouched);
}

INSTANTIATE_TEST_SUITE_P(Databases, SqlTest, ::testing::ValuesIn(Databases({1, 4, 5})), DatabaseName);

}  // namespace
}  // namespace scadastore::testing
