// The data-record exports against every database: creating tables, writing
// single records and batches, reading, modifying and deleting by position.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "core/settings.h"
#include "core/sql_text.h"
#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

// Value places of the test table: a float, an integer, a column of another
// code (no value), a text.
constexpr size_t kA = 16, kB = 24, kC = 28;
constexpr uint32_t kRecordSize = 284;

class RecordTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    table_ = DataTable(DropAtEnd(UniqueTableName("rcd")), {{"a", 3}, {"b", 4}, {"x", 7}, {"c", 12}});
    ASSERT_EQ(sgEnsureTableExist(Token(), table(), nullptr, 0), 0u);
  }

  const DataTableInfo* table() const { return table_.info(); }
  std::string name() const { return table_.info()->name; }
  std::string Sql(const char* backtickTemplate) const {
    return FormatStatement(DialectOf(kind()), 1024, backtickTemplate, name().c_str());
  }
  std::string LastError() const { return dbGetLastError(); }
  bool AllowsBatches() const { return kind() != 1 && kind() != 6; }

  // Records with time, ms, a, b and c set from k; id and modify hold garbage.
  RecordBuffer Records(size_t count, uint32_t firstTime = 100) const {
    RecordBuffer records(kRecordSize, count);
    for (size_t k = 0; k < count; ++k) {
      records.Put<uint32_t>(k, 0, 777);
      records.Put<uint32_t>(k, 4, firstTime + static_cast<uint32_t>(k));
      records.Put<uint32_t>(k, 8, 250);
      records.Put<uint32_t>(k, 12, 5);
      records.Put<double>(k, kA, 0.5 + static_cast<double>(k));
      records.Put<int32_t>(k, kB, k % 2 == 0 ? 7 : 0);
      records.PutText(k, kC, "row " + std::to_string(k) + " it's");
    }
    return records;
  }

  void SetEach(const RecordBuffer& records) {
    for (size_t k = 0; k < records.bytes() / kRecordSize; ++k) {
      RecordBuffer one(kRecordSize, 1);
      std::memcpy(one.data(), const_cast<RecordBuffer&>(records).record(k), kRecordSize);
      ASSERT_EQ(sgSetRecord(Token(), table(), one.record(0), kRecordSize), 0u) << LastError();
    }
  }

  // The whole table as sgGetRecord hands it out.
  RecordBuffer ReadAll() {
    void* block = nullptr;
    uint32_t size = 12345;
    EXPECT_EQ(sgGetRecord(Token(), table(), &block, &size, nullptr), 0u) << LastError();
    RecordBuffer all(kRecordSize, size / kRecordSize);
    EXPECT_EQ(size % kRecordSize, 0u);
    if (size) std::memcpy(all.data(), block, size);
    std::free(block);
    return all;
  }

  DataTable table_{"", {}};
};

TEST_P(RecordTest, CreatesTablesOnce) {
  DataTable bare(DropAtEnd(UniqueTableName("rcd_bare")), {});
  char errorText[64] = "untouched";
  EXPECT_EQ(sgEnsureTableExist(Token(), bare.info(), errorText, sizeof errorText), 0u);
  EXPECT_EQ(dbIsTableExist(Token(), bare.info()->name), 1);
  EXPECT_EQ(std::string(errorText), kind() == 4 ? "" : "untouched");
  EXPECT_EQ(sgGetRecordCount(Token(), bare.info()), 0u);

  // An existing table is accepted whatever the description says.
  std::strcpy(errorText, "untouched");
  EXPECT_EQ(sgEnsureTableExist(Token(), table(), errorText, sizeof errorText), 0u);
  EXPECT_STREQ(errorText, "untouched");

  // Columns past 7680 characters: the unfinished statement is rejected.
  std::vector<std::pair<std::string, uint32_t>> many(300, {std::string(31, 'n'), 3});
  DataTable wide(DropAtEnd(UniqueTableName("rcd_wide")), many);
  EXPECT_EQ(sgEnsureTableExist(Token(), wide.info(), errorText, sizeof errorText), 0u);
  EXPECT_STRNE(errorText, "");
  EXPECT_EQ(dbIsTableExist(Token(), wide.info()->name), 0);
  EXPECT_EQ(sgEnsureTableExist(nullptr, table(), nullptr, 0), 1u);
}

TEST_P(RecordTest, WritesRecordsUnderNewIdsAndReadsThemBack) {
  SetEach(Records(3));
  RecordBuffer all = ReadAll();
  ASSERT_EQ(all.bytes(), 3 * kRecordSize);
  for (uint32_t k = 0; k < 3; ++k) {
    EXPECT_EQ(all.Get<uint32_t>(k, 0), k + 1);
    EXPECT_EQ(all.Get<uint32_t>(k, 4), 100 + k);
    EXPECT_EQ(all.Get<uint32_t>(k, 8), 250u);
    EXPECT_EQ(all.Get<uint32_t>(k, 12), 0u);
    EXPECT_NEAR(all.Get<double>(k, kA), 0.5 + k, 1e-6);
    EXPECT_EQ(all.Get<int32_t>(k, kB), k % 2 == 0 ? 1 : 0);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(all.record(k)) + kC),
              "row " + std::to_string(k) + " it's");
  }
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 3u);

  RecordBuffer one(kRecordSize, 1);
  EXPECT_EQ(sgGetRecordByIndex(Token(), table(), 2, one.record(0), kRecordSize), 0u);
  EXPECT_EQ(std::memcmp(one.data(), all.record(1), kRecordSize), 0);
  EXPECT_EQ(sgGetIdByIndex(Token(), table(), 3), 3u);
  // A bare name serves where only the name is read.
  const auto* bare = reinterpret_cast<const DataTableInfo*>(table()->name);
  EXPECT_EQ(sgGetIdByIndex(Token(), bare, 1), 1u);
  EXPECT_EQ(sgGetRecordCount(Token(), bare), 3u);

  EXPECT_EQ(sgGetIdByIndex(Token(), table(), 4), 0u);
  EXPECT_EQ(LastError(), "[rcd904] invalid parameter");
  EXPECT_EQ(sgGetRecordByIndex(Token(), table(), 4, one.record(0), kRecordSize), 1u);
  EXPECT_EQ(LastError(), "[rcd1004] invalid parameter");
  EXPECT_EQ(sgGetRecordByIndex(Token(), table(), 1, one.record(0), kRecordSize + 1), 1u);
  EXPECT_EQ(LastError(), "[rcd1001] invalid parameter");
}

TEST_P(RecordTest, RefusesRecordsThatCannotBeWritten) {
  RecordBuffer record = Records(1);
  EXPECT_EQ(sgSetRecord(Token(), table(), record.record(0), 16), 1u);
  EXPECT_EQ(LastError(), "[rcd101] invalid parameter");
  EXPECT_EQ(sgSetRecord(Token(), table(), record.record(0), kRecordSize - 1), 1u);
  EXPECT_EQ(LastError(), "[rcd106] failed to create sql: ");
  record.PutText(0, kC, std::string(254, 'x'));  // loses its closing quote
  EXPECT_EQ(sgSetRecord(Token(), table(), record.record(0), kRecordSize), 1u);
  EXPECT_EQ(LastError().rfind("[rcd104] exec error: ", 0), 0u) << LastError();
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 0u);
}

TEST_P(RecordTest, BatchesWriteEveryRecordOrNone) {
  SetEach(Records(1));
  RecordBuffer records = Records(3, 200);
  const uint32_t twoAndAHalf = 2 * kRecordSize + kRecordSize / 2;
  if (kind() == 4) {  // SQLite has no INSERT ALL: the form is seen in the error text
    EXPECT_EQ(sgBatchSetRecord(Token(), table(), records.data(), twoAndAHalf), 1u);
    EXPECT_EQ(LastError().rfind("[rcd1705] exec error: ", 0), 0u) << LastError();
    EXPECT_NE(LastError().find("sql: INSERT ALL INTO \""), std::string::npos) << LastError();
    return;
  }
  if (!AllowsBatches()) return;
  ASSERT_EQ(sgBatchSetRecord(Token(), table(), records.data(), twoAndAHalf), 0u) << LastError();
  RecordBuffer all = ReadAll();
  ASSERT_EQ(all.bytes(), 3 * kRecordSize);
  EXPECT_EQ(all.Get<uint32_t>(1, 0), 2u);
  EXPECT_EQ(all.Get<uint32_t>(2, 0), 3u);
  EXPECT_EQ(all.Get<uint32_t>(2, 4), 201u);
  EXPECT_EQ(all.Get<int32_t>(1, kB), 1);

  // One row the database rejects fails the whole statement.
  records.PutText(1, kC, std::string(254, 'x'));
  EXPECT_EQ(sgBatchSetRecord(Token(), table(), records.data(), records.bytes()), 1u);
  EXPECT_EQ(LastError().rfind("[rcd1705] exec error: ", 0), 0u) << LastError();
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 3u);

  RecordBuffer many = Records(10000);
  ASSERT_EQ(sgBatchSetRecord(Token(), table(), many.data(), many.bytes()), 0u) << LastError();
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 10003u);
  EXPECT_EQ(sgGetIdByIndex(Token(), table(), 10003), 10003u);
}

TEST_P(RecordTest, BatchesAreRefusedUnderKindsOneAndSixWithoutConnecting) {
  const std::string config = GetParam().Config();
  // Settings that cannot connect: a refusal before connecting keeps its own text.
  dbInitialize(("no_such_dsn;;;" + std::to_string(kind())).c_str());
  RecordBuffer records = Records(1);
  EXPECT_EQ(sgBatchSetRecord(Token(), table(), records.data(), kRecordSize), 1u);
  const std::string refused = LastError();
  ASSERT_EQ(dbInitialize(config.c_str()), 0u);
  EXPECT_EQ(refused, kind() == 1 || kind() == 6 ? "[rcd1701] invalid parameter"
                                                : "[rcd1702] failed to open DSN: no_such_dsn");
}

TEST_P(RecordTest, ModifiesByPositionKeepingTimeAndMs) {
  SetEach(Records(3));
  RecordBuffer change = Records(1, 999);
  change.Put<double>(0, kA, 42.25);
  change.Put<int32_t>(0, kB, 0);
  change.PutText(0, kC, "changed");
  ASSERT_EQ(sgModifyRecordByIndex(Token(), table(), 2, change.record(0), kRecordSize), 0u)
      << LastError();
  RecordBuffer all = ReadAll();
  ASSERT_EQ(all.bytes(), 3 * kRecordSize);
  EXPECT_EQ(all.Get<uint32_t>(1, 4), 101u);
  EXPECT_EQ(all.Get<uint32_t>(1, 8), 250u);
  EXPECT_EQ(all.Get<uint32_t>(1, 12), 1u);
  EXPECT_EQ(all.Get<double>(1, kA), 42.25);
  EXPECT_EQ(all.Get<int32_t>(1, kB), 0);
  EXPECT_STREQ(reinterpret_cast<const char*>(all.record(1)) + kC, "changed");
  EXPECT_EQ(all.Get<uint32_t>(2, 12), 0u);

  EXPECT_EQ(sgModifyRecordByIndex(Token(), table(), 0, change.record(0), kRecordSize), 1u);
  EXPECT_EQ(LastError(), "[rcd1101] invalid parameter");
  EXPECT_EQ(sgModifyRecordByIndex(Token(), table(), 4, change.record(0), kRecordSize), 1u);
  EXPECT_EQ(LastError(), "[rcd904] invalid parameter");
}

TEST_P(RecordTest, ReadsAnEmptyTable) {
  sgSetRecord(Token(), table(), nullptr, 0);
  const std::string before = LastError();
  void* block = reinterpret_cast<void*>(0x1);
  uint32_t size = 7;
  EXPECT_EQ(sgGetRecord(Token(), table(), &block, &size, ""), 0u);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(LastError(), before);
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 0u);
  RecordBuffer one(kRecordSize, 1);
  EXPECT_EQ(sgGetRecordByIndex(Token(), table(), 1, one.record(0), kRecordSize), 1u);
  EXPECT_EQ(LastError(), "[rcd1004] invalid parameter");
  EXPECT_EQ(sgGetRecordByTime(Token(), table(), 0, one.record(0), kRecordSize), 1u);
  EXPECT_EQ(LastError(), "[rcd405] no record");
}

TEST_P(RecordTest, ReadsByIntervalAndByMinute) {
  RecordBuffer records = Records(3);
  records.Put<uint32_t>(0, 4, 160);
  records.Put<uint32_t>(1, 4, 100);
  records.Put<uint32_t>(2, 4, 159);
  SetEach(records);

  void* block = nullptr;
  uint32_t size = 0;
  ASSERT_EQ(sgGetAllRecordOfInterval(Token(), table(), 159, 160, &block, &size), 0u);
  ASSERT_EQ(size, 2 * kRecordSize);
  EXPECT_EQ(static_cast<DataRecord*>(block)->id, 1u);
  std::free(block);
  EXPECT_EQ(sgGetAllRecordOfInterval(Token(), table(), 100, 100, &block, &size), 1u);
  EXPECT_EQ(LastError(), "[rcd301] invalid parameter");

  RecordBuffer one(kRecordSize, 1);
  ASSERT_EQ(sgGetRecordByTime(Token(), table(), 100, one.record(0), kRecordSize), 0u);
  EXPECT_EQ(one.Get<uint32_t>(0, 0), 2u);  // 160 is past the minute
  ASSERT_EQ(sgGetRecordByTime(Token(), table(), 101, one.record(0), kRecordSize), 0u);
  EXPECT_EQ(one.Get<uint32_t>(0, 0), 1u);  // lowest id of 159 and 160
}

TEST_P(RecordTest, ChecksTheResultAgainstTheDescription) {
  SetEach(Records(1));
  void* block = nullptr;
  uint32_t size = 0;
  RecordBuffer one(kRecordSize, 1);
  DataTable fewer(name(), {{"a", 3}, {"b", 4}, {"x", 7}});
  DataTable more(name(), {{"a", 3}, {"b", 4}, {"x", 7}, {"c", 12}, {"d", 3}});
  for (const DataTable* wrong : {&fewer, &more}) {
    EXPECT_EQ(sgGetRecord(Token(), wrong->info(), &block, &size, nullptr), 1u);
    EXPECT_EQ(LastError(), "[rcd204] invalid Norvak data table");
    EXPECT_EQ(sgGetRecordByTime(Token(), wrong->info(), 100, one.record(0), wrong->recordSize()), 1u);
    EXPECT_EQ(LastError(), "[rcd404] invalid Norvak data table");
  }
  EXPECT_EQ(sgGetRecordByIndex(Token(), fewer.info(), 1, one.record(0), fewer.recordSize()), 0u);
  EXPECT_EQ(one.Get<int32_t>(0, kB), 1);

  const std::string some = Sql("select `id`, `time` from `%s`");
  EXPECT_EQ(sgGetRecord(Token(), table(), &block, &size, some.c_str()), 1u);
  EXPECT_EQ(LastError(), "[rcd204] invalid Norvak data table");
}

TEST_P(RecordTest, NullValuesKeepTheCallersBytesButIntegersReadZero) {
  ASSERT_EQ(sgOperateRecord(Token(), table(),
                            Sql("insert into `%s` (`id`, `time`) values (1, 100)").c_str()), 0u)
      << LastError();
  RecordBuffer one(kRecordSize, 1);
  std::memset(one.data(), 0x5A, kRecordSize);
  ASSERT_EQ(sgGetRecordByIndex(Token(), table(), 1, one.record(0), kRecordSize), 0u) << LastError();
  EXPECT_EQ(one.Get<uint32_t>(0, 0), 1u);
  EXPECT_EQ(one.Get<uint32_t>(0, 8), 0x5A5A5A5Au);
  EXPECT_EQ(one.Get<uint64_t>(0, kA), 0x5A5A5A5A5A5A5A5Aull);
  EXPECT_EQ(one.Get<int32_t>(0, kB), 0);
}

TEST_P(RecordTest, DeletesAllByStatementAndByPosition) {
  SetEach(Records(4));
  EXPECT_EQ(sgDeleteRecordByIndex(Token(), table(), 1), 0u) << LastError();
  EXPECT_EQ(sgGetIdByIndex(Token(), table(), 1), 2u);
  EXPECT_EQ(sgDeleteRecordByIndex(Token(), table(), 0), 1u);
  EXPECT_EQ(LastError(), "[rcd1201] invalid parameter");
  EXPECT_EQ(sgDeleteRecordByIndex(Token(), table(), 4), 1u);
  EXPECT_EQ(LastError(), "[rcd904] invalid parameter");

  EXPECT_EQ(sgDeleteRecord(Token(), table(), Sql("delete from `%s` where `time`=102").c_str()), 0u);
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 2u);
  const auto* bare = reinterpret_cast<const DataTableInfo*>(table()->name);
  EXPECT_EQ(sgDeleteRecord(Token(), bare, nullptr), 0u) << LastError();
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 0u);
  EXPECT_EQ(dbIsTableExist(Token(), table()->name), 1);

  // A name longer than the 255-character statement is cut and rejected.
  const std::string longName(300, 'n');
  const auto* cut = reinterpret_cast<const DataTableInfo*>(longName.c_str());
  EXPECT_EQ(sgDeleteRecord(Token(), cut, nullptr), 1u);
  EXPECT_EQ(LastError().rfind("[rcd803] exec error: ", 0), 0u) << LastError();
  EXPECT_EQ(sgGetRecordCount(Token(), cut), 0xFFFFFFFFu);
  EXPECT_EQ(LastError().rfind("[rcd1303] failed to open table: select count(*) from ", 0), 0u);
}

INSTANTIATE_TEST_SUITE_P(Databases, RecordTest, ::testing::ValuesIn(Databases({1, 3, 4, 5, 6})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
