#include <gtest/gtest.h>

#include <string>

#include "support/data_tables.h"
#include "record/data_layout.h"

namespace scadastore::record {
namespace {

using scadastore::testing::DataTable;
using scadastore::testing::RecordBuffer;

std::string ValueText(SqlDialect dialect, const ColumnLayout& column, const void* record) {
  std::string text;
  AppendValueText(text, dialect, column, record);
  return text;
}

TEST(RecordCodec, PacksValuesWithoutAlignment) {
  DataTable table("t", {{"flag", 4}, {"level", 3}, {"spare", 7}, {"note", 12}, {"last", 3}});
  const TableLayout layout = DescribeTable(*table.info());
  EXPECT_EQ(layout.name, "t");
  ASSERT_EQ(layout.columns.size(), 5u);
  EXPECT_EQ(layout.columns[1].offset, 20u);  // a double right after an integer
  EXPECT_EQ(layout.columns[2].width, 0u);
  EXPECT_EQ(layout.columns[3].offset, 28u);
  EXPECT_EQ(layout.columns[4].offset, 284u);
  EXPECT_EQ(layout.recordSize, 292u);
  EXPECT_TRUE(layout.HoldsValues());
  table.info()->recordSize = 291;
  EXPECT_FALSE(DescribeTable(*table.info()).HoldsValues());

  RecordBuffer record(292, 1);
  record.Put<double>(0, 20, 21.5);
  record.Put<double>(0, 284, 0.1);
  EXPECT_EQ(ValueText(SqlDialect::Bracket, layout.columns[1], record.data()), "21.5");
  EXPECT_EQ(ValueText(SqlDialect::Bracket, layout.columns[4], record.data()), "0.10000000000000001");
  EXPECT_EQ(ValueText(SqlDialect::Bracket, layout.columns[2], record.data()), "");
}

TEST(RecordCodec, NameIsReadFromABareTextToo) {
  EXPECT_EQ(TableName("samples"), "samples");
  DataTable table(std::string(500, 'n'), {});
  EXPECT_EQ(TableName(table.info()).size(), 435u);
}

TEST(RecordCodec, IntegersAreWrittenAsOneOrZero) {
  DataTable table("t", {{"b", 4}});
  const ColumnLayout column = Layout(*table.info())[0];
  RecordBuffer record(20, 1);
  for (auto [value, text] : {std::pair{7, "1"}, {-5, "1"}, {0, "0"}}) {
    record.Put<int32_t>(0, 16, value);
    EXPECT_EQ(ValueText(SqlDialect::Backtick, column, record.data()), text) << value;
  }
}

TEST(RecordCodec, TextsAreQuotedEscapedAndCut) {
  DataTable table("t", {{"c", 12}});
  const ColumnLayout column = Layout(*table.info())[0];
  RecordBuffer record(272, 1);

  record.PutText(0, 16, std::string(253, 'x'));
  EXPECT_EQ(ValueText(SqlDialect::Bracket, column, record.data()), "'" + std::string(253, 'x') + "'");
  record.PutText(0, 16, std::string(254, 'x'));
  EXPECT_EQ(ValueText(SqlDialect::Bracket, column, record.data()), "'" + std::string(254, 'x'));

  record.PutText(0, 16, "it's a\\b");
  EXPECT_EQ(ValueText(SqlDialect::DoubleQuote, column, record.data()), "'it''s a\\b'");
  EXPECT_EQ(ValueText(SqlDialect::Backtick, column, record.data()), "'it''s a\\\\b'");

  // A field without its NUL ends at its 256 bytes.
  for (int i = 0; i < 256; ++i) record.Put<char>(0, 16 + i, 'y');
  EXPECT_EQ(ValueText(SqlDialect::Bracket, column, record.data()).size(), kValueTextLimit);
}

}  // namespace
}  // namespace scadastore::record
