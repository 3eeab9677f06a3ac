#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "core/connection.h"
#include "core/sql_text.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

// The outputs of one sgGetRecordBySQL call, preset to values it must overwrite.
struct TextTableResult {
  uint32_t result = 99, rowCount = 99, fieldCount = 99, textLength = 99;
  uint32_t* offsets = reinterpret_cast<uint32_t*>(0x10);
  char* text = reinterpret_cast<char*>(0x10);

  ~TextTableResult() {
    if (result == 0 && text) std::free(offsets);
    if (result == 0) std::free(text);
  }
  std::string Cell(uint32_t row, uint32_t field) const {
    return text + offsets[row * fieldCount + field];
  }
  std::vector<std::string> Row(uint32_t row) const {
    std::vector<std::string> cells;
    for (uint32_t f = 0; f < fieldCount; ++f) cells.push_back(Cell(row, f));
    return cells;
  }
};

using Cells = std::vector<std::string>;

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
    Run("create table `" + name_ + "` (`id` integer, `time` integer, `ms` integer, "
        "`modify` integer, `a` float, `s` varchar(64))");
  }

  std::string Sql(const std::string& backtickSql) {
    return DialectTemplate(DialectOf(kind()), backtickSql.c_str());
  }
  void Run(const std::string& backtickSql) {
    DbConnection db;
    ASSERT_TRUE(db.Open());
    ASSERT_TRUE(db.Execute(Sql(backtickSql).c_str())) << db.ErrorText();
  }
  void Insert(uint32_t id, uint32_t time, const std::string& a, const std::string& s) {
    Run("insert into `" + name_ + "` (`id`, `time`, `ms`, `modify`, `a`, `s`) values (" +
        std::to_string(id) + ", " + std::to_string(time) + ", 5, 0, " + a + ", '" + s + "')");
  }
  void Query(TextTableResult& out, const std::string& backtickSql, const char* timeColumns = nullptr) {
    std::string sql = Sql(backtickSql);
    out.result = sgGetRecordBySQL(Token(), "unused", sql.c_str(), timeColumns, &out.rowCount,
                                  &out.fieldCount, &out.offsets, &out.text, &out.textLength);
  }

  std::string name_;
};

TEST_P(SqlTest, DataTableRowsBecomeTextWithLocalDateTimes) {
  Insert(1, 1714521600, "1.5", "first");
  Insert(2, 1714525261, "-2.25", "second");
  TextTableResult out;
  Query(out, "select * from `" + name_ + "` order by `id`");
  ASSERT_EQ(out.result, 0u) << dbGetLastError();
  EXPECT_EQ(out.rowCount, 2u);
  ASSERT_EQ(out.fieldCount, 3u);
  EXPECT_EQ(out.Row(0), (Cells{"time", "a", "s"}));
  EXPECT_EQ(out.Row(1), (Cells{"2024-05-01 08:00:00", "1.5", "first"}));
  EXPECT_EQ(out.Row(2), (Cells{"2024-05-01 09:01:01", "-2.25", "second"}));

  // Every cell with its NUL, back to back; the rest of the block is zero.
  uint32_t expectedLength = 0;
  for (uint32_t entry = 0; entry < 3 * (out.rowCount + 1); ++entry) {
    EXPECT_EQ(out.offsets[entry], expectedLength);
    expectedLength += static_cast<uint32_t>(std::strlen(out.text + out.offsets[entry])) + 1;
  }
  EXPECT_EQ(out.textLength, expectedLength);
  EXPECT_EQ(out.text[out.textLength], '\0');
  // The table has room for 6 columns a row; the unused entries are zero.
  for (uint32_t i = 9; i < 3 * 6; ++i) EXPECT_EQ(out.offsets[i], 0u) << i;
}

TEST_P(SqlTest, EmptyResultsAndSkippedColumns) {
  TextTableResult none;
  Query(none, "select * from `" + name_ + "`");
  ASSERT_EQ(none.result, 0u) << dbGetLastError();
  EXPECT_EQ(none.text, nullptr);
  EXPECT_EQ(none.textLength, 0u);
  EXPECT_EQ(none.rowCount, 99u);
  EXPECT_EQ(none.fieldCount, 99u);
  EXPECT_EQ(none.offsets, reinterpret_cast<uint32_t*>(0x10));

  Insert(1, 0, "1", "x");
  Insert(2, 0, "2", "y");
  TextTableResult fixedOnly;
  Query(fixedOnly, "select `id`, `ms`, `modify` from `" + name_ + "`");
  ASSERT_EQ(fixedOnly.result, 0u) << dbGetLastError();
  EXPECT_EQ(fixedOnly.rowCount, 2u);
  EXPECT_EQ(fixedOnly.fieldCount, 0u);
  EXPECT_EQ(fixedOnly.textLength, 0u);

  // Only exact names are special: an ID in capitals is an ordinary column.
  TextTableResult capital;
  Query(capital, "select `id` as `ID`, `s` from `" + name_ + "` order by `id`");
  ASSERT_EQ(capital.result, 0u) << dbGetLastError();
  ASSERT_EQ(capital.fieldCount, 2u);
  EXPECT_EQ(capital.Row(0), (Cells{"ID", "s"}));
  EXPECT_EQ(capital.Row(2), (Cells{"2", "y"}));
}

TEST_P(SqlTest, TimesOutsideTheDateWindowAndListedTimeColumns) {
  Insert(1, 0, "0", "a");
  Insert(2, 1262275200, "0", "b");
  Insert(3, 1262275201, "0", "c");
  TextTableResult out;
  Query(out, "select `time`, `time` as `t1`, `time` as `t2`, `time` as `t3` from `" + name_ +
                 "` order by `id`",
        ("t1;;T2;" + std::string(64, 'x') + ";t3;").c_str());
  ASSERT_EQ(out.result, 0u) << dbGetLastError();
  ASSERT_EQ(out.fieldCount, 4u);
  EXPECT_EQ(out.Row(0), (Cells{"time", "t1", "t2", "t3"}));
  // Outside the window a cell holds what a second read gives: the number, or
  // nothing on drivers that read a column once.
  for (uint32_t row : {1u, 2u}) {
    std::string number = row == 1 ? "0" : "1262275200";
    for (uint32_t f : {0u, 1u, 3u}) {
      std::string cell = out.Cell(row, f);
      EXPECT_TRUE(cell.empty() || cell == number) << row << "," << f << ": " << cell;
    }
  }
  const std::string date = "2010-01-01 00:00:01";
  EXPECT_EQ(out.Row(3), (Cells{date, date, "1262275201", date}));
}

TEST_P(SqlTest, FailuresAreCoded) {
  TextTableResult out;
  EXPECT_EQ(sgGetRecordBySQL(Token(), "t", nullptr, nullptr, &out.rowCount, &out.fieldCount,
                             &out.offsets, &out.text, &out.textLength),
            1u);
  EXPECT_STREQ(dbGetLastError(), "[rcd1501] invalid parameter");
  EXPECT_EQ(sgGetRecordBySQL(Token(), nullptr, "select 1", nullptr, &out.rowCount, &out.fieldCount,
                             &out.offsets, &out.text, &out.textLength),
            1u);
  EXPECT_STREQ(dbGetLastError(), "[rcd1501] invalid parameter");

  std::string missing = "select * from " + name_ + "_missing";
  EXPECT_EQ(sgGetRecordBySQL(Token(), "t", missing.c_str(), nullptr, &out.rowCount,
                             &out.fieldCount, &out.offsets, &out.text, &out.textLength),
            1u);
  EXPECT_EQ(dbGetLastError(), "[rcd1503] failed to open table: " + missing);
  EXPECT_EQ(out.text, reinterpret_cast<char*>(0x10));
}

INSTANTIATE_TEST_SUITE_P(Databases, SqlTest, ::testing::ValuesIn(Databases({1, 4, 5})), DatabaseName);

}  // namespace
}  // namespace scadastore::testing
