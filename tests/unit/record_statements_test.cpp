// The shown texts and the limits; the databases run the statements in every
// dialect (tests/integration).
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "core/common_statements.h"
#include "record/record_statements.h"
#include "support/data_tables.h"

namespace scadastore::record {
namespace {

using scadastore::testing::Columns;
using scadastore::testing::DataTable;
using scadastore::testing::RecordBuffer;

// Sizes that do not match the description build nothing; statements stop at
// their limits.
TEST(RecordStatements, OtherSizesBuildNothingAndStatementsStopAtTheirLimits) {
  DataTable abxc("t", {{"a", 3}, {"b", 4}, {"x", 9}, {"c", 12}});
  const TableLayout t = DescribeTable(*abxc.info());
  RecordBuffer record(t.recordSize, 1);
  for (uint32_t size : {t.recordSize - 1, t.recordSize + 1}) {
    Statement refused = InsertStatement(1, t, record.data(), size, 5);
    EXPECT_FALSE(refused.complete);
    EXPECT_EQ(refused.text, "");
  }
  EXPECT_EQ(BatchStatement(3, t, record.data(), t.recordSize - 1, 1).text, "");
  TableLayout zero = t;
  zero.recordSize = 0;
  EXPECT_EQ(BatchStatement(3, zero, record.data(), 100, 1).text, "");

  // Texts of 253 characters: 31 of them pass 7680 before an insert's last
  // value, 33 pass 8192 before a batch row ends.
  DataTable texts29("t", Columns(29, {"c", 12})), texts31("t", Columns(31, {"c", 12})),
      texts33("t", Columns(33, {"c", 12}));
  const TableLayout fits = DescribeTable(*texts29.info()), t31 = DescribeTable(*texts31.info()),
                    t33 = DescribeTable(*texts33.info());
  RecordBuffer records(t33.recordSize, 2);
  for (int r = 0; r < 2; ++r)
    for (int i = 0; i < 33; ++i) records.PutText(r, 16 + 256 * i, std::string(253, 'v'));

  Statement insert = InsertStatement(1, t31, records.data(), t31.recordSize, 1);
  EXPECT_FALSE(insert.complete);
  EXPECT_GE(insert.text.size(), kStatementLimit);
  EXPECT_LT(insert.text.size(), kStatementLimit + 256);
  EXPECT_FALSE(UpdateStatement(1, t31, records.data(), 1).complete);
  EXPECT_TRUE(InsertStatement(1, fits, records.data(), fits.recordSize, 1).complete);

  EXPECT_FALSE(BatchStatement(3, t33, records.data(), records.bytes(), 1).complete);
  EXPECT_FALSE(BatchStatement(4, t33, records.data(), records.bytes(), 1).complete);
  const Statement two = BatchStatement(3, t31, records.data(), t31.recordSize * 2, 1);
  EXPECT_TRUE(two.complete);
  EXPECT_EQ(two.texts.size(), 62u);

  // A batch binds at most SCADASTORE_BATCH_TEXT_LIMIT texts.
  DataTable oneText("t", {{"c", 12}});
  const TableLayout c = DescribeTable(*oneText.info());
  RecordBuffer many(c.recordSize, kBatchTextLimit + 1);
  EXPECT_EQ(BatchStatement(3, c, many.data(), c.recordSize * kBatchTextLimit, 1).texts.size(),
            kBatchTextLimit);
  EXPECT_FALSE(BatchStatement(3, c, many.data(), many.bytes(), 1).complete);

  // A name that cuts a short statement fits a whole-table read.
  const std::string longName(300, 'n');
  EXPECT_EQ(SelectAllStatement(1, longName, kWholeTableStatementSize).text,
            "select * from [" + longName + "] order by [id] asc");
}

}  // namespace
}  // namespace scadastore::record
