#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "record/stat_statements.h"
#include "support/data_tables.h"

namespace scadastore::record {
namespace {

using testing::DataTable;

TEST(StatStatement, SelectsTheAggregateOfFloatColumnsInEachDialect) {
  DataTable t("t", {{"a", 3}, {"b", 4}, {"c", 3}, {"d", 12}, {"e", 7}});
  StatStatement backtick = StatementBuilder(SqlDialect::Backtick, *t.info(), Statistic::Max, 1000, 4600);
  EXPECT_TRUE(backtick.complete);
  EXPECT_EQ(backtick.text, "select max(`a`), max(`c`) from `t` where (`time`>=1000) and (`time`<4600)");
  EXPECT_EQ(StatementBuilder(SqlDialect::Bracket, *t.info(), Statistic::Min, 1000, 4600).text,
            "select min([a]), min([c]) from [t] where ([time]>=1000) and ([time]<4600)");
  EXPECT_EQ(StatementBuilder(SqlDialect::DoubleQuote, *t.info(), Statistic::Sum, 1000, 4600).text,
            "select sum(\"a\"), sum(\"c\") from \"t\" where (\"time\">=1000) and (\"time\"<4600)");
  EXPECT_EQ(StatementBuilder(SqlDialect::Backtick, *t.info(), Statistic::Average, 0, 1).text,
            "select avg(`a`), avg(`c`) from `t` where (`time`>=0) and (`time`<1)");
}

TEST(StatStatement, EdgesOfTheIntervalAndTheText) {
  DataTable noFloats("t", {{"b", 4}, {"c", 12}});
  EXPECT_EQ(StatementBuilder(SqlDialect::Backtick, *noFloats.info(), Statistic::Max, 1, 2).text,
            "select from `t` where (`time`>=1) and (`time`<2)");

  // Start must lie below end as unsigned numbers: -1 is 4294967295.
  DataTable t("t", {{"a", 3}});
  for (auto [start, end] : {std::pair<uint32_t, uint32_t>{5, 5}, {6, 5},
                            {static_cast<uint32_t>(-1), 10}}) {
    StatStatement refused = StatementBuilder(SqlDialect::Backtick, *t.info(), Statistic::Max, start, end);
    EXPECT_FALSE(refused.complete);
    EXPECT_EQ(refused.text, "");
  }
  // Bounds past 2^31 print signed.
  EXPECT_EQ(StatementBuilder(SqlDialect::Backtick, *t.info(), Statistic::Max, 0x7fffffffu, 0x80000000u).text,
            "select max(`a`) from `t` where (`time`>=2147483647) and (`time`<-2147483648)");

  // The table's name and the bounds share 127 characters.
  std::string longName(120, 'n');
  DataTable longTable(longName.c_str(), {{"a", 3}});
  std::string text = StatementBuilder(SqlDialect::Backtick, *longTable.info(), Statistic::Max, 1, 2).text;
  EXPECT_EQ(text, "select max(`a`) from `" + longName + "` wher");
}

TEST(StatStatement, StopsWhenTheSelectListPassesItsLimit) {
  std::vector<std::pair<std::string, uint32_t>> columns(400, {"abcdefghijklmnopqrstuvwxyz01234", 3});
  DataTable wide("t", columns);
  StatStatement statement = StatementBuilder(SqlDialect::Backtick, *wide.info(), Statistic::Max, 1, 2);
  EXPECT_FALSE(statement.complete);
  // "select", then 39 characters for the first column and 40 for each further
  // one, until the text reaches 7680 characters.
  EXPECT_EQ(statement.text.size(), 6 + 39 + 191 * 40u);
  EXPECT_EQ(statement.text.find(" from "), std::string::npos);
}

TEST(StatStatement, StatisticComesFromTheCallerOrTheTable) {
  EXPECT_EQ(ResolveStatistic(1, 3), Statistic::Max);
  EXPECT_EQ(ResolveStatistic(2, 1), Statistic::Min);
  EXPECT_EQ(ResolveStatistic(3, 1), Statistic::Average);
  EXPECT_EQ(ResolveStatistic(4, 1), Statistic::Sum);
  EXPECT_EQ(ResolveStatistic(9, 1), Statistic::Max);
  EXPECT_EQ(ResolveStatistic(0, 2), Statistic::Min);
  EXPECT_EQ(ResolveStatistic(5, 5), Statistic::Sum);
  EXPECT_EQ(ResolveStatistic(0, 0), Statistic::Average);
  EXPECT_EQ(ResolveStatistic(0, 6), Statistic::Average);
}

TEST(DaysInMonth, FollowsTheGregorianCalendar) {
  const int common[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (int month = 1; month <= 12; ++month) EXPECT_EQ(DaysInMonth(2023, month), common[month - 1]);
  EXPECT_EQ(DaysInMonth(2024, 2), 29);
  EXPECT_EQ(DaysInMonth(2000, 2), 29);
  EXPECT_EQ(DaysInMonth(1900, 2), 28);
}

}  // namespace
}  // namespace scadastore::record
