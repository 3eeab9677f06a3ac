#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "record/stat_statements.h"
#include "support/data_tables.h"

namespace scadastore::record {
namespace {

using testing::DataTable;
using enum SqlDialect;

std::string Text(SqlDialect dialect, const DataTable& t, Statistic s, uint32_t start, uint32_t end) {
  return StatementBuilder(dialect, *t.info(), s, start, end).text;
}

TEST(StatStatement, AggregatesTheFloatColumnsInEachDialect) {
  DataTable t("t", {{"a", 3}, {"b", 4}, {"c", 3}, {"d", 12}, {"e", 7}});
  EXPECT_EQ(Text(Backtick, t, Statistic::Max, 1000, 4600),
            "select max(`a`), max(`c`) from `t` where (`time`>=1000) and (`time`<4600)");
  EXPECT_EQ(Text(Bracket, t, Statistic::Min, 1000, 4600),
            "select min([a]), min([c]) from [t] where ([time]>=1000) and ([time]<4600)");
  EXPECT_EQ(Text(DoubleQuote, t, Statistic::Sum, 0, 1),
            "select sum(\"a\"), sum(\"c\") from \"t\" where (\"time\">=0) and (\"time\"<1)");
  // Bounds past 2^31 print signed.
  EXPECT_EQ(Text(Backtick, t, Statistic::Average, 0x7fffffffu, 0x80000000u),
            "select avg(`a`), avg(`c`) from `t` where (`time`>=2147483647) and (`time`<-2147483648)");
  EXPECT_EQ(Text(Backtick, DataTable("t", {{"b", 4}}), Statistic::Max, 1, 2),
            "select from `t` where (`time`>=1) and (`time`<2)");
}

TEST(StatStatement, RefusesEmptyIntervalsAndCutsLongTexts) {
  DataTable t("t", {{"a", 3}});
  // Start must lie below end as unsigned numbers: -1 is 4294967295.
  for (auto [start, end] : std::vector<std::pair<uint32_t, uint32_t>>{{5, 5}, {6, 5}, {~0u, 10}}) {
    StatStatement refused = StatementBuilder(Backtick, *t.info(), Statistic::Max, start, end);
    EXPECT_FALSE(refused.complete);
    EXPECT_EQ(refused.text, "");
  }
  // The table's name and the bounds share 127 characters.
  std::string name(120, 'n');
  EXPECT_EQ(Text(Backtick, DataTable(name, {{"a", 3}}), Statistic::Max, 1, 2),
            "select max(`a`) from `" + name + "` wher");

  // "select", 39 characters for the first column and 40 for each further one,
  // until the text reaches 7680 characters: the builder stops there.
  DataTable wide("t", std::vector<std::pair<std::string, uint32_t>>(400, {std::string(31, 'c'), 3}));
  StatStatement stopped = StatementBuilder(Backtick, *wide.info(), Statistic::Max, 1, 2);
  EXPECT_FALSE(stopped.complete);
  EXPECT_EQ(stopped.text.size(), 6 + 39 + 191 * 40u);
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
