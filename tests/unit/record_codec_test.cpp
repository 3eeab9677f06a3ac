#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "record/data_layout.h"
#include "support/data_tables.h"

namespace scadastore::record {
namespace {

using scadastore::testing::DataTable;
using scadastore::testing::RecordBuffer;
using enum SqlDialect;

std::string ValueText(const ColumnLayout& column, const RecordBuffer& record) {
  Statement out;
  AppendValue(out, column, record.data());
  return out.text;
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
  record.Put<double>(0, 20, 0.1);
  EXPECT_EQ(ValueText(layout.columns[1], record), "0.10000000000000001");
  EXPECT_EQ(ValueText(layout.columns[2], record), "");
  for (auto [value, text] : {std::pair{7, "1"}, {-5, "1"}, {0, "0"}}) {
    record.Put<int32_t>(0, 16, value);
    EXPECT_EQ(ValueText(layout.columns[0], record), text) << value;
  }
  // The name is read from a bare text too, up to its 435 characters.
  EXPECT_EQ(TableName("samples"), "samples");
  EXPECT_EQ(TableName(DataTable(std::string(500, 'n'), {}).info()).size(), 435u);
}

TEST(RecordCodec, TextsAreBoundWhole) {
  DataTable table("t", {{"c", 12}});
  const ColumnLayout column = Layout(*table.info())[0];
  RecordBuffer record(272, 1);
  auto value = [&] {
    Statement out;
    AppendValue(out, column, record.data());
    return out;
  };

  // Never cut inside its quotes: the whole text is bound.
  record.PutText(0, 16, std::string(254, 'x'));
  EXPECT_EQ(value().text, "'" + std::string(254, 'x') + "'");
  EXPECT_EQ(value().sql, "?");
  record.PutText(0, 16, "it's a\\b");
  EXPECT_EQ(value().text, "'it''s a\\b'");
  EXPECT_EQ(value().texts, std::vector<std::string>{"it's a\\b"});

  // A field without its NUL ends at its 256 bytes.
  for (int i = 0; i < 256; ++i) record.Put<char>(0, 16 + i, 'y');
  EXPECT_EQ(value().texts, std::vector<std::string>{std::string(256, 'y')});
}

}  // namespace
}  // namespace scadastore::record
