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
// One kind of each dialect.
constexpr DbKind Backtick = 2, Bracket = 1, DoubleQuote = 5;

TEST(RecordStatements, CreateInEveryDialectStoppingAt7680Characters) {
  DataTable abcd("t", {{"a", 3}, {"b", 4}, {"c", 12}, {"d", 7}});
  const TableLayout t = DescribeTable(*abcd.info());
  EXPECT_EQ(CreateTableStatement(1, t).text,
            "create table [t] ([id] integer NOT NULL PRIMARY KEY,[time] integer,[ms] integer,"
            "[modify] integer,[a] float,[b] integer,[c] varchar(64),[d] float)");
  EXPECT_EQ(CreateTableStatement(2, t).text,
            "create table `t` (`id` integer NOT NULL PRIMARY KEY,`time` integer,`ms` integer,"
            "`modify` integer,`a` float,`b` integer,`c` varchar(64),`d` float)"
            "ENGINE=InnoDB DEFAULT CHARSET=utf8");
  EXPECT_EQ(CreateTableStatement(5, DescribeTable(*DataTable("t", {}).info())).text,
            "create table \"t\" (\"id\" integer NOT NULL PRIMARY KEY,\"time\" integer,"
            "\"ms\" integer,\"modify\" integer)");

  DataTable wide("t", Columns(400, {std::string(31, 'n'), 3}));
  const Statement cut = CreateTableStatement(1, DescribeTable(*wide.info()));
  EXPECT_FALSE(cut.complete);
  const std::string& create = cut.text;
  EXPECT_GE(create.size(), kStatementLimit);
  EXPECT_LT(create.size(), kStatementLimit + 40);
  EXPECT_EQ(create.substr(create.size() - 6), " float");  // unfinished: no closing parenthesis
}

TEST(RecordStatements, InsertAndUpdateOfOneRecord) {
  DataTable abxc("t", {{"a", 3}, {"b", 4}, {"x", 9}, {"c", 12}});
  const TableLayout t = DescribeTable(*abxc.info());
  RecordBuffer record(t.recordSize, 1);
  record.Put<uint32_t>(0, 0, 99);  // id and modify are never read
  record.Put<uint32_t>(0, 4, 100);
  record.Put<uint32_t>(0, 8, 250);
  record.Put<uint32_t>(0, 12, 7);
  record.Put<double>(0, 16, 21.5);
  record.Put<int32_t>(0, 24, 7);
  record.PutText(0, 28, "on");

  Statement insert = InsertStatement(Bracket, t, record.data(), t.recordSize, 5);
  EXPECT_TRUE(insert.complete);
  EXPECT_EQ(insert.text,
            "insert into [t] ([id],[time],[ms],[modify],[a],[b],[c]) values(5,100,250,0,21.5,1,'on')");
  EXPECT_EQ(insert.sql,
            "insert into [t] ([id],[time],[ms],[modify],[a],[b],[c]) values(5,100,250,0,21.5,1,?)");
  EXPECT_EQ(insert.texts, std::vector<std::string>{"on"});
  Statement update = UpdateStatement(Backtick, t, record.data(), 12);
  EXPECT_TRUE(update.complete);
  EXPECT_EQ(update.text, "update `t` set `modify`=1,`a`=21.5,`b`=1,`c`='on' where `id`=12");
  EXPECT_EQ(update.sql, "update `t` set `modify`=1,`a`=21.5,`b`=1,`c`=? where `id`=12");

  for (uint32_t size : {t.recordSize - 1, t.recordSize + 1}) {
    Statement refused = InsertStatement(Bracket, t, record.data(), size, 5);
    EXPECT_FALSE(refused.complete);
    EXPECT_EQ(refused.text, "");
  }
}

TEST(RecordStatements, StatementsStopAtTheirLimits) {
  // Texts of 253 characters: 31 of them pass 7680 before an insert's last
  // value, 33 pass 8192 before a batch row ends.
  DataTable texts29("t", Columns(29, {"c", 12})), texts31("t", Columns(31, {"c", 12})),
      texts33("t", Columns(33, {"c", 12}));
  const TableLayout fits = DescribeTable(*texts29.info()), t31 = DescribeTable(*texts31.info()),
                    t33 = DescribeTable(*texts33.info());
  RecordBuffer records(t33.recordSize, 2);
  for (int r = 0; r < 2; ++r)
    for (int i = 0; i < 33; ++i) records.PutText(r, 16 + 256 * i, std::string(253, 'v'));

  Statement insert = InsertStatement(Bracket, t31, records.data(), t31.recordSize, 1);
  EXPECT_FALSE(insert.complete);
  EXPECT_GE(insert.text.size(), kStatementLimit);
  EXPECT_LT(insert.text.size(), kStatementLimit + 256);
  EXPECT_FALSE(UpdateStatement(Bracket, t31, records.data(), 1).complete);
  EXPECT_TRUE(InsertStatement(Bracket, fits, records.data(), fits.recordSize, 1).complete);

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
}

TEST(RecordStatements, BatchInMultiRowAndInsertAllForms) {
  DataTable a("t", {{"a", 3}});
  const TableLayout t = DescribeTable(*a.info());
  RecordBuffer records(t.recordSize, 3);
  records.Put<uint32_t>(0, 4, 100);
  records.Put<double>(0, 16, 1.5);
  records.Put<uint32_t>(1, 4, 101);
  records.Put<double>(1, 16, 2.5);
  // Two and a half records: the remainder is ignored.
  const uint32_t size = t.recordSize * 2 + t.recordSize / 2;
  EXPECT_EQ(BatchStatement(2, t, records.data(), size, 7).text,
            "insert into `t` (`id`,`time`,`ms`,`modify`,`a`) values (7,100,0,0,1.5),(8,101,0,0,2.5)");
  EXPECT_EQ(BatchStatement(3, t, records.data(), size, 7).text,
            "insert into [t] ([id],[time],[ms],[modify],[a]) values (7,100,0,0,1.5),(8,101,0,0,2.5)");
  EXPECT_EQ(BatchStatement(5, t, records.data(), t.recordSize, 1).text,
            "insert into \"t\" (\"id\",\"time\",\"ms\",\"modify\",\"a\") values (1,100,0,0,1.5)");
  EXPECT_EQ(BatchStatement(4, t, records.data(), size, 7).text,
            "INSERT ALL INTO \"t\" (\"id\",\"time\",\"ms\",\"modify\",\"a\") values (7,100,0,0,1.5) "
            "INTO \"t\" (\"id\",\"time\",\"ms\",\"modify\",\"a\") values (8,101,0,0,2.5)"
            "SELECT * FROM DUAL;");

  EXPECT_EQ(BatchStatement(3, t, records.data(), t.recordSize - 1, 1).text, "");
  TableLayout zero = t;
  zero.recordSize = 0;
  EXPECT_EQ(BatchStatement(3, zero, records.data(), 100, 1).text, "");
}

TEST(RecordStatements, ReadersAndDeleters) {
  EXPECT_EQ(IntervalStatement(Bracket, "t", 10, 20).text,
            "select * from [t] where ([time]>=10) and ([time]<=20) order by [id] asc");
  EXPECT_EQ(IdsStatement(DoubleQuote, "t").text, "select \"id\" from \"t\" order by \"id\" asc");
  EXPECT_EQ(DeleteAllStatement(Bracket, "t").text, "delete from [t]");

  // Short statements are cut at 255 characters, whole-table reads at 1023.
  const std::string longName(300, 'n');
  EXPECT_EQ(DeleteAllStatement(Bracket, longName).text.size(), 255u);
  EXPECT_EQ(SelectAllStatement(Bracket, longName, kWholeTableStatementSize).text,
            "select * from [" + longName + "] order by [id] asc");
}

}  // namespace
}  // namespace scadastore::record
