// Hostile input: caller texts that quoting by hand would turn into SQL, under
// server settings that read quotes and backslashes differently; statements
// too long for their buffers.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

int RowCount(const std::string& table) {
  std::vector<Cells> rows = SelectTexts("select count(*) as n from " + table);
  return rows.size() == 1 && rows[0].size() == 1 ? std::atoi(rows[0][0].c_str()) : -1;
}

// A field of `width` bytes whose column holds `column` characters.
struct Field {
  char* place;
  size_t width, column;
};

// The texts given to the fields in turn: a literal built by hand would end
// early under one server setting or another and let the rest run as SQL.
std::vector<std::vector<std::string>> Cases(const std::string& attack) {
  return {{"it's", "''", "x'"},
          {"x\\", "\\", "\\'"},
          {"a--b", "c;d", "/*e"},
          {"\xbf\x5c", "\xbf\x27"},
          {"\xd6\xd0\xce\xc4"},
          {std::string("ab\0cd", 5)},
          {std::string(300, 'f')},
          {"x\\", attack},
          {"\xbf\x5c", attack},
          {std::string(254, 'A'), "," + attack}};
}

constexpr int kGbkHost = 1;  // the variant of a host in a GBK locale

// Server configurations under which quoting by hand breaks, beside the defaults.
std::vector<Database> QuotingDatabases() {
  std::vector<Database> all = Databases({3});
  all.push_back({"Postgres5Escapes", "SCADASTORE_TEST_POSTGRES_ESCAPES", 5});
  all.push_back({"Mariadb2NoEscapes", "SCADASTORE_TEST_MARIADB_NO_ESCAPES", 2});
  all.push_back({"Mariadb2Gbk", "SCADASTORE_TEST_MARIADB_GBK", 2, kGbkHost});
  all.push_back({"Mariadb2GbkHost", "SCADASTORE_TEST_MARIADB", 2, kGbkHost});
  return all;
}

// Every writer stores hostile texts beside a sentinel table of one row that
// no text may reach.
class QuotingTest : public DatabaseTest {
 protected:
  void SetUp() override {
    if (GetParam().variant == kGbkHost) {
      ASSERT_NE(std::setlocale(LC_CTYPE, "zh_CN.GBK"), nullptr) << "no zh_CN.GBK locale";
    }
    DatabaseTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    sentinel_ = DropAtEnd(UniqueTableName("sentinel"));
    DataTable sentinel(sentinel_, {{"v", 3}});
    RecordBuffer row(sentinel.recordSize(), 1);
    ASSERT_EQ(sgEnsureTableExist(Token(), sentinel.info(), nullptr, 0), 0u);
    ASSERT_EQ(sgSetRecord(Token(), sentinel.info(), row.record(0), row.bytes()), 0u);
  }
  void TearDown() override {
    if (!sentinel_.empty()) {
      EXPECT_EQ(RowCount(sentinel_), 1) << "the sentinel table changed";
    }
    DatabaseTest::TearDown();
    std::setlocale(LC_CTYPE, "C");
  }

  std::string sentinel_;
};

// A writer: its fields, the code of its refusal, the call and the select of
// its columns in id order. A batch writes its fields as two rows; a modify
// rewrites the second of three rows.
struct Writer {
  const char* name;
  std::vector<Field> fields;
  const char* code;
  std::function<uint32_t()> write;
  std::string select;
  size_t rows = 1;
  bool modifies = false;
};

TEST_P(QuotingTest, EveryWriterStoresTextsAsGiven) {
  const std::string alarms = DropAtEnd(UniqueTableName("alm")),
                    logs = DropAtEnd(UniqueTableName("log"));
  ASSERT_EQ(almEnsureTableExist(Token(), alarms.c_str()), 0u);
  ASSERT_EQ(logEnsureTableExist(Token(), logs.c_str()), 0u);
  DataTable single(DropAtEnd(UniqueTableName("rcd")), {{"s1", 12}, {"s2", 12}}),
      batch(DropAtEnd(UniqueTableName("rcd")), {{"s1", 12}, {"s2", 12}}),
      modified(DropAtEnd(UniqueTableName("rcd")), {{"s1", 12}, {"s2", 12}});
  RecordBuffer records(single.recordSize(), 2);
  for (DataTable* table : {&single, &batch, &modified})
    ASSERT_EQ(sgEnsureTableExist(Token(), table->info(), nullptr, 0), 0u);
  for (const char* text : {"one", "two", "three"}) {
    records.PutText(0, 16, text);
    records.PutText(0, 16 + 256, text);
    ASSERT_EQ(sgSetRecord(Token(), modified.info(), records.record(0), single.recordSize()), 0u);
  }
  AlarmRecord alarm{};
  LogRecord log{};
  char* values = reinterpret_cast<char*>(records.data()) + 16;
  const std::vector<Field> one = {{values, 256, 64}, {values + 256, 256, 64}};
  std::vector<Field> two = one;
  for (const Field& field : one) two.push_back({field.place + single.recordSize(), 256, 64});
  auto texts = [](const char* columns, const DataTable& table) {
    return std::string("select ") + columns + " from " + table.info()->name + " order by id";
  };
  const Writer writers[] = {
      {"almSetAlarm",
       {{alarm.station, 32, 32}, {alarm.tag, 32, 32}, {alarm.description, 128, 128},
        {alarm.batch, 64, 64}},
       "[alm104]", [&] { return almSetAlarm(Token(), alarms.c_str(), &alarm, sizeof alarm); },
       "select station, tag, description, batch from " + alarms + " order by id"},
      {"logSetLog",
       {{log.source, 64, 64}, {log.loginfo, 250, 250}, {log.operator_, 32, 32},
        {log.monitor, 32, 32}, {log.logverify, 64, 64}, {log.ackinfo, 256, 250},
        {log.batch, 64, 64}},
       "[log104]", [&] { return logSetLog(Token(), logs.c_str(), &log, sizeof log); },
       "select source, loginfo, operator, monitor, logverify, ackinfo, batch from " + logs +
           " order by id"},
      {"sgSetRecord", one, "[rcd104]",
       [&] { return sgSetRecord(Token(), single.info(), records.record(0), single.recordSize()); },
       texts("s1, s2", single)},
      {"sgBatchSetRecord", two, "[rcd1705]",
       [&] { return sgBatchSetRecord(Token(), batch.info(), records.data(), records.bytes()); },
       texts("s1, s2", batch), 2},
      {"sgModifyRecordByIndex", one, "[rcd1103]",
       [&] {
         return sgModifyRecordByIndex(Token(), modified.info(), 2, records.record(0),
                                      single.recordSize());
       },
       texts("s1, s2", modified), 1, true},
  };
  for (const Writer& writer : writers) {
    std::vector<Cells> stored = {{"two", "two"}};
    if (!writer.modifies) stored.clear();
    for (const Cells& texts : Cases("NULL); delete from " + sentinel_ + "; -- ")) {
      Cells expected;
      bool columnsHoldAll = true, terminated = true;
      for (size_t i = 0; i < writer.fields.size(); ++i) {
        const Field& field = writer.fields[i];
        const std::string& text = texts[i % texts.size()];
        std::memset(field.place, 0, field.width);
        std::memcpy(field.place, text.data(), std::min(text.size(), field.width));
        const std::string kept = text.substr(0, std::min(field.width, text.find('\0')));
        terminated = terminated && kept.size() < field.width;
        for (unsigned char byte : kept) columnsHoldAll = columnsHoldAll && byte < 0x80;
        columnsHoldAll = columnsHoldAll && kept.size() <= field.column;
        expected.push_back(kept.substr(0, 255));
      }
      const std::string label = std::string(writer.name) + " " + texts[0].substr(0, 8);
      if (!terminated) {  // a text that fills its field without a NUL
        EXPECT_EQ(writer.write(), 1u) << label;
        EXPECT_TRUE(std::string(dbGetLastError()).ends_with("1] invalid parameter")) << dbGetLastError();
      } else if (writer.write() == 0) {
        const size_t width = expected.size() / writer.rows;
        for (size_t row = 0; row < writer.rows; ++row)
          stored.emplace_back(expected.begin() + row * width, expected.begin() + (row + 1) * width);
      } else {
        // Refused whole, and only where a column cannot hold a text (too
        // long, or not in the database's character set).
        EXPECT_FALSE(columnsHoldAll) << label << ": " << dbGetLastError();
        EXPECT_EQ(std::string(dbGetLastError()).rfind(writer.code, 0), 0u) << label << ": "
                                                                           << dbGetLastError();
      }
    }
    if (writer.modifies) stored = {{"one", "one"}, stored.back(), {"three", "three"}};
    EXPECT_EQ(SelectTexts(writer.select), stored) << writer.name;
  }
}

INSTANTIATE_TEST_SUITE_P(Databases, QuotingTest, ::testing::ValuesIn(QuotingDatabases()),
                         DatabaseName);

// Table names long enough to cut statements of 256- and 128-byte buffers
// where the cut still reads as SQL: "... from "t" wher" deletes every row,
// "... from "t"" computes over the whole table. MariaDB names hold at most
// 64 characters; PostgreSQL keeps the first 63 of a longer name.
class LimitTest : public DatabaseTest {
 protected:
  void SetUp() override {
    DatabaseTest::SetUp();
    if (!IsSkipped() && kind() == 2) GTEST_SKIP() << "names of at most 64 characters";
  }
  // A data table of one float column v with rows at times 1000, 2000, 9000,
  // its name padded to `nameLength` characters.
  DataTable ThreeRows(size_t nameLength) {
    std::string name = UniqueTableName("cut");
    DataTable table(DropAtEnd(name + std::string(nameLength - name.size(), 'n')), {{"v", 3}});
    EXPECT_EQ(sgEnsureTableExist(Token(), table.info(), nullptr, 0), 0u);
    RecordBuffer record(table.recordSize(), 1);
    for (auto [time, v] : {std::pair{1000u, 1.0}, {2000u, 5.0}, {9000u, 100.0}}) {
      record.Put(0, 4, time);
      record.Put(0, 16, v);
      EXPECT_EQ(sgSetRecord(Token(), table.info(), record.record(0), record.bytes()), 0u)
          << dbGetLastError();
    }
    return table;
  }
};

// The export frame runs no select cut at its buffer ("... from "t" order by"
// loses its order: the id lookup of a delete by position); record_test has a
// cut change. The builders' limits are unit tests.
TEST_P(LimitTest, StatementsThatDoNotFitDoNotRun) {
  DataTable table = ThreeRows(236);
  EXPECT_TRUE(Refused(sgDeleteRecordByIndex(Token(), table.info(), 1), 1, "[rcd903] "));
  EXPECT_EQ(RowCount(table.info()->name), 3);

  // The aggregate's table name and bounds share a 128-byte buffer, which
  // these names cut in the condition, after the name and in it.
  for (size_t length : {105, 125, 236}) {
    DataTable stats = ThreeRows(length);
    RecordBuffer slot(stats.recordSize(), 1);
    EXPECT_TRUE(Refused(sgGetRecordStatValueOfInterval(Token(), stats.info(), 1, 1000, 4600,
                                                       slot.record(0), slot.bytes()),
                        1, "[rcd1405] failed to create sql: "));
  }
}

INSTANTIATE_TEST_SUITE_P(Databases, LimitTest, ::testing::ValuesIn(Databases({3})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
