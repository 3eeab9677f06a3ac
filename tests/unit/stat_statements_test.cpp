#include <gtest/gtest.h>

#include <string>

#include "record/stat_statements.h"
#include "support/data_tables.h"

namespace scadastore::record {
namespace {

using testing::Columns;
using testing::DataTable;
// One kind of each dialect.
constexpr DbKind Backtick = 2, Bracket = 1, DoubleQuote = 5;

Statement Build(const DataTable& t, uint32_t start, uint32_t end, DbKind kind = Backtick,
                Statistic s = Statistic::Max) {
  return StatementBuilder(kind, *t.info(), s, start, end);
}

TEST(StatStatement, AggregatesTheFloatColumnsInEachDialect) {
  DataTable t("t", {{"a", 3}, {"b", 4}, {"c", 3}, {"d", 12}, {"e", 7}});
  EXPECT_EQ(Build(t, 1000, 4600).text,
            "select max(`a`), max(`c`) from `t` where (`time`>=1000) and (`time`<4600)");
  EXPECT_EQ(Build(t, 1000, 4600, Bracket, Statistic::Min).text,
            "select min([a]), min([c]) from [t] where ([time]>=1000) and ([time]<4600)");
  EXPECT_EQ(Build(t, 0, 1, DoubleQuote, Statistic::Sum).text,
            "select sum(\"a\"), sum(\"c\") from \"t\" where (\"time\">=0) and (\"time\"<1)");
  // Bounds past 2^31 print signed.
  EXPECT_EQ(Build(t, 0x7fffffffu, 0x80000000u, Backtick, Statistic::Average).text,
            "select avg(`a`), avg(`c`) from `t` where (`time`>=2147483647) and (`time`<-2147483648)");
  EXPECT_EQ(Build(DataTable("t", {{"b", 4}}), 1, 2).text,
            "select from `t` where (`time`>=1) and (`time`<2)");
}

TEST(StatStatement, RefusesEmptyIntervalsAndCutsLongTexts) {
  // Start must lie below end as unsigned numbers: -1 is 4294967295.
  for (auto [start, end] : {std::pair{5u, 5u}, {6u, 5u}, {~0u, 10u}}) {
    Statement refused = Build(DataTable("t", {{"a", 3}}), start, end);
    EXPECT_FALSE(refused.complete);
    EXPECT_EQ(refused.text, "");
  }
  // The table's name and the bounds share 127 characters.
  std::string name(120, 'n');
  EXPECT_EQ(Build(DataTable(name, {{"a", 3}}), 1, 2).text,
            "select max(`a`) from `" + name + "` wher");

  // "select", 39 characters for the first column and 40 for each further one,
  // until the text reaches 7680 characters: the builder stops there.
  Statement stopped = Build(DataTable("t", Columns(400, {std::string(31, 'c'), 3})), 1, 2);
  EXPECT_FALSE(stopped.complete);
  EXPECT_EQ(stopped.text.size(), 6 + 39 + 191 * 40u);
}

TEST(DaysInMonth, FollowsTheGregorianCalendar) {
  const int common[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  for (int month = 1; month <= 12; ++month) EXPECT_EQ(DaysInMonth(2023, month), common[month - 1]);
  for (auto [year, february] : {std::pair{2024, 29}, {2000, 29}, {1900, 28}})
    EXPECT_EQ(DaysInMonth(year, 2), february) << year;
}

}  // namespace
}  // namespace scadastore::record
