#include <gtest/gtest.h>

#include <string>

#include "record/stat_statements.h"
#include "support/data_tables.h"

namespace scadastore::record {
namespace {

using testing::Columns;
using testing::DataTable;

// The databases compute the statistics (tests/integration); here the bounds
// and the limit.
TEST(StatStatement, SignedBoundsAndTheLengthLimit) {
  DataTable t("t", {{"a", 3}, {"b", 4}, {"c", 3}});
  EXPECT_EQ(
      StatementBuilder(2, *t.info(), Statistic::Average, 0x7fffffffu, 0x80000000u).text,
      "select avg(`a`), avg(`c`) from `t` where (`time`>=2147483647) and (`time`<-2147483648)");
  // "select", 39 characters for the first column and 40 for each further one,
  // until the text reaches 7680 characters: the builder stops there.
  DataTable wide("t", Columns(400, {std::string(31, 'c'), 3}));
  Statement stopped = StatementBuilder(2, *wide.info(), Statistic::Max, 1, 2);
  EXPECT_FALSE(stopped.complete);
  EXPECT_EQ(stopped.text.size(), 6 + 39 + 191 * 40u);
}

}  // namespace
}  // namespace scadastore::record
