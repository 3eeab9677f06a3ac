// The data-record exports against every database: creating tables, writing
// single records and batches, reading, modifying and deleting by position.
#include <gtest/gtest.h>

#include <atomic>
#include <cctype>
#include <cstring>
#include <string>
#include <thread>

#include "core/settings.h"
#include "record/record_statements.h"
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
  // Reads only the name, as a bare table name does.
  const DataTableInfo* bare() const { return reinterpret_cast<const DataTableInfo*>(table()->name); }
  std::string Sql(const char* backtickTemplate) const {
    return DatabaseTest::Sql(backtickTemplate, table()->name);
  }

  // Records with time, ms, a, b and c set from k; id and modify hold garbage.
  static RecordBuffer Records(size_t count, uint32_t firstTime = 100) {
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

  void SetEach(RecordBuffer records) {
    for (size_t k = 0; k < records.bytes() / kRecordSize; ++k)
      ASSERT_EQ(sgSetRecord(Token(), table(), records.record(k), kRecordSize), 0u) << dbGetLastError();
  }

  // The whole table as sgGetRecord hands it out.
  RecordBuffer ReadAll() {
    void* block = nullptr;
    uint32_t size = 12345;
    EXPECT_EQ(sgGetRecord(Token(), table(), &block, &size, nullptr), 0u) << dbGetLastError();
    RecordBuffer all(kRecordSize, size / kRecordSize);
    EXPECT_EQ(size % kRecordSize, 0u);
    if (size) std::memcpy(all.data(), block, size);
    FreeResultBlock(block);
    return all;
  }

  DataTable table_{"", {}};
  RecordBuffer one_{kRecordSize, 1};
};

TEST_P(RecordTest, CreatesTablesOnceThenWritesUnderNewIdsAndReads) {
  DataTable empty(DropAtEnd(UniqueTableName("rcd_bare")), {});
  char errorText[64] = "untouched";
  EXPECT_EQ(sgEnsureTableExist(Token(), empty.info(), errorText, sizeof errorText), 0u);
  EXPECT_EQ(dbIsTableExist(Token(), empty.info()->name), 1);
  EXPECT_EQ(std::string(errorText), kind() == 4 ? "" : "untouched");
  // With its time index, except under kind 4.
  const std::string dropTimeIndex = DropTimeIndexSql(kind(), empty.info()->name);
  EXPECT_EQ(sgOperateRecord(Token(), empty.info(), dropTimeIndex.c_str()), kind() == 4 ? 1u : 0u);

  // An existing table is accepted as it is: it gets no index.
  std::strcpy(errorText, "untouched");
  EXPECT_EQ(sgEnsureTableExist(Token(), empty.info(), errorText, sizeof errorText), 0u);
  EXPECT_STREQ(errorText, "untouched");
  EXPECT_EQ(sgOperateRecord(Token(), empty.info(), dropTimeIndex.c_str()), 1u);
  EXPECT_EQ(sgEnsureTableExist(nullptr, table(), nullptr, 0), 1u);
  // Names of other tables, or of this one in other letters, are not found.
  std::string upper = table()->name;
  for (char& c : upper) c = static_cast<char>(std::toupper(c));
  for (const std::string& other : {upper, std::string("db"), std::string("servers"),
                                   std::string("event"), std::string("pg_class"),
                                   std::string("sqlite_master")})
    EXPECT_EQ(dbIsTableExist(Token(), other.c_str()), 0) << other;
  // Removal reports the statement's error.
  EXPECT_EQ(dbRemoveTable(Token(), empty.info()->name, nullptr, 0), 0u);
  EXPECT_EQ(dbIsTableExist(Token(), empty.info()->name), 0);
  char removal[256];
  EXPECT_EQ(dbRemoveTable(Token(), empty.info()->name, removal, sizeof removal), 1u);
  EXPECT_EQ(std::string(removal).rfind("ret: -1, msg: ", 0), 0u) << removal;

  // Columns past 7680 characters: the unfinished statement is rejected.
  DataTable wide(DropAtEnd(UniqueTableName("rcd_wide")), Columns(300, {std::string(31, 'n'), 3}));
  EXPECT_EQ(sgEnsureTableExist(Token(), wide.info(), errorText, sizeof errorText), 0u);
  EXPECT_STRNE(errorText, "");
  EXPECT_EQ(dbIsTableExist(Token(), wide.info()->name), 0);

  // An empty result leaves the last error alone.
  const std::string before = dbGetLastError();
  void* block = reinterpret_cast<void*>(0x1);
  uint32_t size = 7;
  EXPECT_EQ(sgGetRecord(Token(), table(), &block, &size, ""), 0u);
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(dbGetLastError(), before);
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 0u);
  EXPECT_TRUE(Refused(sgGetRecordByTime(Token(), table(), 0, one_.record(0), kRecordSize), 1,
                     "[rcd405] no record"));

  // Records are written under new ids and read back.
  RecordBuffer refused = Records(1);
  EXPECT_TRUE(Refused(sgSetRecord(Token(), table(), refused.record(0), 16), 1,
                     "[rcd101] invalid parameter"));
  EXPECT_TRUE(Refused(sgSetRecord(Token(), table(), refused.record(0), kRecordSize - 1), 1,
                     "[rcd106] failed to create sql: "));

  RecordBuffer written = Records(3);
  SetEach(written);
  RecordBuffer all = ReadAll();
  ASSERT_EQ(all.bytes(), 3 * kRecordSize);
  for (uint32_t k = 0; k < 3; ++k) {
    SCOPED_TRACE(k);
    // Read back under its new id, modify cleared, the integer 7 as 1.
    written.Put<uint32_t>(k, 0, k + 1);
    written.Put<uint32_t>(k, 12, 0);
    written.Put<int32_t>(k, kB, k % 2 == 0 ? 1 : 0);
    EXPECT_EQ(std::memcmp(all.record(k), written.record(k), kRecordSize), 0);
    EXPECT_EQ(sgGetRecordByIndex(Token(), table(), k + 1, one_.record(0), kRecordSize), 0u);
    EXPECT_EQ(std::memcmp(one_.data(), all.record(k), kRecordSize), 0);
    EXPECT_EQ(sgGetIdByIndex(Token(), bare(), k + 1), k + 1);
  }
  EXPECT_EQ(sgGetRecordCount(Token(), bare()), 3u);

  EXPECT_EQ(sgGetIdByIndex(Token(), table(), 4), 0u);
  EXPECT_STREQ(dbGetLastError(), "[rcd904] invalid parameter");
  EXPECT_TRUE(Refused(sgGetRecordByIndex(Token(), table(), 4, one_.record(0), kRecordSize), 1,
                     "[rcd1004] invalid parameter"));
  EXPECT_TRUE(Refused(sgGetRecordByIndex(Token(), table(), 1, one_.record(0), kRecordSize + 1), 1,
                     "[rcd1001] invalid parameter"));
}

TEST_P(RecordTest, BatchesWriteEveryRecordOrNone) {
  RecordBuffer records = Records(3, 200);
  // Settings that cannot connect: kinds 1 and 6 refuse before connecting.
  const std::string config = GetParam().Config();
  dbInitialize(("no_such_dsn;;;" + std::to_string(kind())).c_str());
  const ::testing::AssertionResult refused =
      Refused(sgBatchSetRecord(Token(), table(), records.data(), kRecordSize), 1,
             kind() == 1 || kind() == 6 ? "[rcd1701] invalid parameter"
                                        : "[rcd1702] failed to open DSN: no_such_dsn");
  const std::string before = dbGetLastError();
  ASSERT_EQ(dbInitialize(config.c_str()), 0u);
  EXPECT_EQ(dbGetLastError(), before) << "dbInitialize writes no last error";
  EXPECT_TRUE(refused);

  SetEach(Records(1));
  const uint32_t twoAndAHalf = 2 * kRecordSize + kRecordSize / 2;
  if (kind() == 4) {  // SQLite has no INSERT ALL: the form is seen in the error text
    EXPECT_TRUE(Refused(sgBatchSetRecord(Token(), table(), records.data(), twoAndAHalf), 1,
                        "[rcd1705] exec error: "));
    EXPECT_NE(std::string(dbGetLastError()).find("sql: INSERT ALL INTO \""), std::string::npos);
    return;
  }
  if (kind() == 1 || kind() == 6) return;
  ASSERT_EQ(sgBatchSetRecord(Token(), table(), records.data(), twoAndAHalf), 0u) << dbGetLastError();
  RecordBuffer all = ReadAll();
  ASSERT_EQ(all.bytes(), 3 * kRecordSize);
  EXPECT_EQ(all.Get<uint32_t>(2, 0), 3u);
  EXPECT_EQ(all.Get<uint32_t>(2, 4), 201u);
  EXPECT_EQ(all.Get<int32_t>(1, kB), 1);

  // Past the texts a call binds: refused. A refused last record stores nothing of its batch;
  // a pooled session commits each statement after a batch (a fresh session sees the next).
  const uint32_t limit = SCADASTORE_BATCH_TEXT_LIMIT;
  RecordBuffer many = Records(limit + 1, 1000);
  EXPECT_TRUE(Refused(sgBatchSetRecord(Token(), table(), many.data(), many.bytes()), 1,
                      "[rcd1704] failed to create sql"));
  many.Put<uint32_t>(limit - 1, 4, 1000);
  ASSERT_EQ(dbInitialize((config + ";pool").c_str()), 0u);
  const std::string unique = Sql("create unique index `unique_time` on `%s` (`time`)");
  ASSERT_EQ(sgOperateRecord(Token(), table(), unique.c_str()), 0u) << dbGetLastError();
  EXPECT_TRUE(Refused(sgBatchSetRecord(Token(), table(), many.data(), limit * kRecordSize), 1,
                      "[rcd1705] exec error: "));
  many.Put<uint32_t>(limit - 1, 4, 999);
  ASSERT_EQ(sgBatchSetRecord(Token(), table(), many.data(), limit * kRecordSize), 0u) << dbGetLastError();
  ASSERT_EQ(sgSetRecord(Token(), table(), many.record(limit), kRecordSize), 0u) << dbGetLastError();
  ASSERT_EQ(dbInitialize(config.c_str()), 0u);
  EXPECT_EQ(sgGetRecordCount(Token(), table()), limit + 4);

  // Numbers alone (on SQLite added by the driver itself): a refused record in the second
  // statement stores nothing and is shown from that statement's first record on.
  DataTable numbers(DropAtEnd(UniqueTableName("rcd_num")), {{"a", 3}, {"b", 4}});
  ASSERT_EQ(sgEnsureTableExist(Token(), numbers.info(), nullptr, 0), 0u);
  const uint32_t size = numbers.info()->recordSize, count = 401;  // 400 records a statement
  RecordBuffer rows(size, count);
  for (uint32_t k = 0; k < count; ++k) {
    rows.Put<uint32_t>(k, 4, 1000 + k);
    rows.Put<double>(k, 16, k + 0.1);
    rows.Put<int32_t>(k, 24, k % 2 ? 5 : 0);
  }
  rows.Put<uint32_t>(count - 1, 4, 1000);
  const std::string uniqueTime =
      DatabaseTest::Sql("create unique index `rcd_num_time` on `%s` (`time`)", numbers.info()->name);
  ASSERT_EQ(sgOperateRecord(Token(), numbers.info(), uniqueTime.c_str()), 0u) << dbGetLastError();
  EXPECT_TRUE(Refused(sgBatchSetRecord(Token(), numbers.info(), rows.data(), count * size), 1,
                      "[rcd1705] exec error: "));
  EXPECT_NE(std::string(dbGetLastError()).find("values (401,1000,"), std::string::npos) << dbGetLastError();
  EXPECT_EQ(sgGetRecordCount(Token(), numbers.info()), 0u);
  rows.Put<uint32_t>(count - 1, 4, 2000);
  ASSERT_EQ(sgBatchSetRecord(Token(), numbers.info(), rows.data(), count * size), 0u) << dbGetLastError();
  RecordBuffer one(size, 1);
  ASSERT_EQ(sgGetRecordByIndex(Token(), numbers.info(), 400, one.record(0), size), 0u);
  rows.Put<uint32_t>(399, 0, 400);  // its id; modify 0, b stored as 1
  rows.Put<uint32_t>(399, 12, 0);
  rows.Put<int32_t>(399, 24, 1);
  EXPECT_EQ(std::memcmp(one.record(0), rows.record(399), size), 0);
  DataTable missing(UniqueTableName("rcd_missing"), {{"a", 3}, {"b", 4}, {"x", 7}, {"c", 12}});
  EXPECT_TRUE(Refused(sgBatchSetRecord(Token(), missing.info(), records.data(), kRecordSize), 1,
                      "[rcd1703] failed to open table: "));
}

TEST_P(RecordTest, ModifiesByPositionKeepingTimeAndMs) {
  SetEach(Records(3));
  RecordBuffer change = Records(1, 999);
  change.Put<double>(0, kA, 42.25);
  change.Put<int32_t>(0, kB, 0);
  change.PutText(0, kC, "changed, it's");
  ASSERT_EQ(sgModifyRecordByIndex(Token(), table(), 2, change.record(0), kRecordSize), 0u)
      << dbGetLastError();
  RecordBuffer all = ReadAll();
  ASSERT_EQ(all.bytes(), 3 * kRecordSize);
  // The row's own id, time and ms, the caller's values, modify set.
  change.Put<uint32_t>(0, 0, 2);
  change.Put<uint32_t>(0, 4, 101);
  change.Put<uint32_t>(0, 12, 1);
  EXPECT_EQ(std::memcmp(all.record(1), change.record(0), kRecordSize), 0);
  EXPECT_EQ(all.Get<uint32_t>(2, 12), 0u);

  EXPECT_TRUE(Refused(sgModifyRecordByIndex(Token(), table(), 0, change.record(0), kRecordSize), 1,
                     "[rcd1101] invalid parameter"));
  EXPECT_TRUE(Refused(sgModifyRecordByIndex(Token(), table(), 4, change.record(0), kRecordSize), 1,
                     "[rcd904] invalid parameter"));
  DataTable tooSmall(table()->name, {{"a", 3}, {"b", 4}, {"x", 7}, {"c", 12}});
  tooSmall.info()->recordSize = 20;  // cannot hold the values
  EXPECT_TRUE(Refused(sgModifyRecordByIndex(Token(), tooSmall.info(), 1, change.record(0), 20), 1,
                      "[rcd1104] failed to create sql"));
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
  FreeResultBlock(block);
  EXPECT_TRUE(Refused(sgGetAllRecordOfInterval(Token(), table(), 100, 100, &block, &size), 1,
                     "[rcd301] invalid parameter"));

  ASSERT_EQ(sgGetRecordByTime(Token(), table(), 100, one_.record(0), kRecordSize), 0u);
  EXPECT_EQ(one_.Get<uint32_t>(0, 0), 2u);  // 160 is past the minute
  ASSERT_EQ(sgGetRecordByTime(Token(), table(), 101, one_.record(0), kRecordSize), 0u);
  EXPECT_EQ(one_.Get<uint32_t>(0, 0), 1u);  // lowest id of 159 and 160

  // Rows past the first come in rowsets: a read ending inside its third, with a
  // NULL in one and a text at its column's full width in the last row.
  if (kind() == 1 || kind() == 4 || kind() == 6) return;  // no batches there
  const uint32_t many = 1100, nulled = 700;
  ASSERT_EQ(sgDeleteRecord(Token(), table(), nullptr), 0u);
  records = Records(many);
  records.PutText(many - 1, kC, std::string(64, 'w'));
  ASSERT_EQ(sgBatchSetRecord(Token(), table(), records.data(), records.bytes()), 0u)
      << dbGetLastError();
  const std::string nulls =
      Sql("update `%s` set `a` = null, `c` = null where `id` = ") + std::to_string(nulled);
  ASSERT_EQ(sgOperateRecord(Token(), table(), nulls.c_str()), 0u) << dbGetLastError();
  const RecordBuffer all = ReadAll(), zeros(kRecordSize, 1);
  ASSERT_EQ(all.bytes(), many * kRecordSize);
  for (uint32_t k = 0; k < many; ++k) {
    const bool isNull = k + 1 == nulled;
    ASSERT_TRUE(all.Get<uint32_t>(k, 0) == k + 1 && all.Get<uint32_t>(k, 4) == 100 + k &&
                all.Get<double>(k, kA) == (isNull ? 0.0 : records.Get<double>(k, kA)) &&
                all.Get<int32_t>(k, kB) == (k % 2 == 0) &&
                std::memcmp(all.data() + size_t{k} * kRecordSize + kC,
                            isNull ? zeros.data() + kC : records.data() + size_t{k} * kRecordSize + kC,
                            kRecordSize - kC) == 0)
        << "row " << k + 1;
  }

  // Reads by pages: each row once across page ends, all rows as of one moment while
  // another session changes the first and the last row at once.
  if (!ReadsInPages(kind())) return;
  const uint32_t page = record::kFirstPageRows, rows = 2 * page;
  ASSERT_EQ(sgDeleteRecord(Token(), table(), nullptr), 0u);
  const std::string fill = Sql("insert into `%s` (`id`,`time`,`ms`,`modify`) select `seq`,`seq`,"
                               "0,0 from seq_1_to_") + std::to_string(rows);
  ASSERT_EQ(sgOperateRecord(Token(), table(), fill.c_str()), 0u) << dbGetLastError();
  ASSERT_EQ(sgGetAllRecordOfInterval(Token(), table(), 2, page + 2, &block, &size), 0u);
  EXPECT_EQ(size, (page + 1) * kRecordSize);
  EXPECT_EQ(static_cast<DataRecord*>(block)->id, 2u);
  FreeResultBlock(block);
  std::atomic<bool> done = false;
  std::thread writer([&] {
    const std::string update =
        Sql("update `%s` set `modify`=`modify`+1 where `id` in (1,") + std::to_string(rows) + ")";
    while (!done && sgOperateRecord(Token(), table(), update.c_str()) == 0) {}
  });
  for (int read = 0; read < 3; ++read) {
    RecordBuffer all = ReadAll();
    bool whole = all.bytes() == rows * kRecordSize;
    for (uint32_t k = 0; whole && k < rows; ++k) whole = all.Get<uint32_t>(k, 0) == k + 1;
    EXPECT_TRUE(whole && all.Get<uint32_t>(0, 12) == all.Get<uint32_t>(rows - 1, 12)) << read;
  }
  done = true;
  writer.join();
  ASSERT_EQ(sgGetRecordByIndex(Token(), table(), 1, one_.record(0), kRecordSize), 0u);
  EXPECT_GT(one_.Get<uint32_t>(0, 12), 2u) << "the writer changed rows during the reads";
}

TEST_P(RecordTest, ReadersCheckTheDescriptionAndKeepTheCallersBytesForNulls) {
  SetEach(Records(1));
  const std::string nulls = Sql("insert into `%s` (`id`, `time`) values (2, 100)");
  ASSERT_EQ(sgOperateRecord(Token(), table(), nulls.c_str()), 0u) << dbGetLastError();
  void* block = nullptr;
  uint32_t size = 0;
  DataTable fewer(table()->name, {{"a", 3}, {"b", 4}, {"x", 7}});
  DataTable more(table()->name, {{"a", 3}, {"b", 4}, {"x", 7}, {"c", 12}, {"d", 3}});
  for (const DataTable* wrong : {&fewer, &more}) {
    EXPECT_TRUE(Refused(sgGetRecord(Token(), wrong->info(), &block, &size, nullptr), 1,
                       "[rcd204] invalid Norvak data table"));
    EXPECT_TRUE(Refused(
        sgGetRecordByTime(Token(), wrong->info(), 100, one_.record(0), wrong->recordSize()), 1,
        "[rcd404] invalid Norvak data table"));
  }
  EXPECT_EQ(sgGetRecordByIndex(Token(), fewer.info(), 1, one_.record(0), fewer.recordSize()), 0u);
  EXPECT_EQ(one_.Get<int32_t>(0, kB), 1);
  const std::string some = Sql("select `id`, `time` from `%s`");
  EXPECT_TRUE(Refused(sgGetRecord(Token(), table(), &block, &size, some.c_str()), 1,
                     "[rcd204] invalid Norvak data table"));

  // NULL values keep the caller's bytes, but integers read 0.
  std::memset(one_.data(), 0x5A, kRecordSize);
  ASSERT_EQ(sgGetRecordByIndex(Token(), table(), 2, one_.record(0), kRecordSize), 0u)
      << dbGetLastError();
  EXPECT_EQ(one_.Get<uint32_t>(0, 0), 2u);
  EXPECT_EQ(one_.Get<uint32_t>(0, 8), 0x5A5A5A5Au);
  EXPECT_EQ(one_.Get<uint64_t>(0, kA), 0x5A5A5A5A5A5A5A5Aull);
  EXPECT_EQ(one_.Get<int32_t>(0, kB), 0);
  // Texts too, except through the backtick dialect's conversion, which reads "".
  EXPECT_EQ(one_.Get<uint64_t>(0, kC) == 0x5A5A5A5A5A5A5A5Aull, kind() != 2);
}

TEST_P(RecordTest, DeletesAllByStatementAndByPosition) {
  SetEach(Records(4));
  // A view of distinct rows: the lookup finds the row, the delete cannot reach it.
  const std::string view = UniqueTableName("rcd_view");
  ASSERT_EQ(sgOperateRecord(Token(), table(), ("create view " + view + " as select distinct * from " +
                                               table()->name).c_str()), 0u) << dbGetLastError();
  EXPECT_TRUE(Refused(sgDeleteRecordByIndex(Token(), reinterpret_cast<const DataTableInfo*>(
                                                         view.c_str()), 1),
                      1, "[rcd1203] exec error: "));
  ASSERT_EQ(sgOperateRecord(Token(), table(), ("drop view " + view).c_str()), 0u);
  EXPECT_EQ(sgDeleteRecordByIndex(Token(), table(), 1), 0u) << dbGetLastError();
  EXPECT_EQ(sgGetIdByIndex(Token(), table(), 1), 2u);
  EXPECT_TRUE(Refused(sgDeleteRecordByIndex(Token(), table(), 0), 1, "[rcd1201] invalid parameter"));
  EXPECT_TRUE(Refused(sgDeleteRecordByIndex(Token(), table(), 4), 1, "[rcd904] invalid parameter"));

  EXPECT_EQ(sgDeleteRecord(Token(), table(), Sql("delete from `%s` where `time`=102").c_str()), 0u);
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 2u);
  EXPECT_EQ(sgDeleteRecord(Token(), bare(), nullptr), 0u) << dbGetLastError();
  EXPECT_EQ(sgGetRecordCount(Token(), table()), 0u);
  EXPECT_EQ(dbIsTableExist(Token(), table()->name), 1);

  // A name longer than the 255-character statement is cut and rejected.
  const std::string longName(300, 'n');
  const auto* cut = reinterpret_cast<const DataTableInfo*>(longName.c_str());
  EXPECT_TRUE(Refused(sgDeleteRecord(Token(), cut, nullptr), 1,
                      "[rcd803] exec error: not run, cut at 255 characters, sql: delete from "));
  EXPECT_EQ(sgGetRecordCount(Token(), cut), 0xFFFFFFFFu);
  const std::string countError = dbGetLastError();
  EXPECT_EQ(countError.rfind("[rcd1303] failed to open table: select count(*) from ", 0), 0u);
}

INSTANTIATE_TEST_SUITE_P(Databases, RecordTest, ::testing::ValuesIn(Databases({1, 3, 4, 5, 6})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
