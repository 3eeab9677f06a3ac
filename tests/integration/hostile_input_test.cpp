// Hostile input: caller texts that quoting by hand would turn into SQL, under
// server settings that read quotes and backslashes differently; statements
// too long for their buffers; sizes that would wrap.
#include <gtest/gtest.h>

#include <algorithm>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "support/alarm_query.h"
#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

using Texts = std::vector<std::string>;

// The rows of a select of text columns, read through sgGetRecordBySQL (cells
// of at most 255 characters).
std::vector<Texts> SelectTexts(const std::string& sql) {
  uint32_t rows = 0, fields = 0, length = 0;
  uint32_t* offsets = nullptr;
  char* text = nullptr;
  std::vector<Texts> result;
  if (sgGetRecordBySQL(Token(), "-", sql.c_str(), nullptr, &rows, &fields, &offsets, &text,
                       &length) != 0) {
    ADD_FAILURE() << dbGetLastError();
    return result;
  }
  if (text == nullptr) return result;
  for (uint32_t r = 1; r <= rows; ++r) {
    Texts row;
    for (uint32_t f = 0; f < fields; ++f) row.emplace_back(text + offsets[r * fields + f]);
    result.push_back(row);
  }
  std::free(offsets);
  std::free(text);
  return result;
}

int RowCount(const std::string& table) {
  std::vector<Texts> rows = SelectTexts("select count(*) as n from " + table);
  return rows.size() == 1 && rows[0].size() == 1 ? std::atoi(rows[0][0].c_str()) : -1;
}

// A field of `width` bytes holds the text up to its NUL and never beyond the width.
struct Field {
  char* place;
  size_t width;
  size_t column;  // characters the column holds
};

std::string StoredText(const std::string& text, size_t width) {
  return text.substr(0, std::min(width, text.find('\0')));
}

// Texts given to a record's text fields in turn.
struct Case {
  const char* label;
  Texts texts;
};

std::vector<Case> CommonCases() {
  return {{"quotes", {"it's", "''", "x'"}},
          {"backslashes", {"x\\", "\\", "\\'"}},
          {"comments", {"a--b", "c;d", "/*e"}},
          {"gbk_backslash", {"\xbf\x5c", "\xbf\x27"}},
          {"gbk_text", {"\xd6\xd0\xce\xc4"}},
          {"nul_inside", {std::string("ab\0cd", 5)}},
          {"full_fields", {std::string(300, 'f')}}};
}

// Server configurations under which quoting by hand breaks, beside the defaults.
std::vector<Database> QuotingDatabases() {
  std::vector<Database> all = Databases({3});
  all.push_back({"Postgres5Escapes", "SCADASTORE_TEST_POSTGRES_ESCAPES", 5});
  all.push_back({"Mariadb2NoEscapes", "SCADASTORE_TEST_MARIADB_NO_ESCAPES", 2});
  all.push_back({"Mariadb2Gbk", "SCADASTORE_TEST_MARIADB_GBK", 2});
  all.push_back({"Mariadb2GbkHost", "SCADASTORE_TEST_MARIADB", 2});
  return all;
}

// Every test writes hostile texts beside a sentinel table of one row that no
// text may reach.
class QuotingTest : public DatabaseTest {
 protected:
  void SetUp() override {
    if (GbkHost()) {
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

  bool GbkHost() const { return GetParam().name.find("Gbk") != std::string::npos; }

  // An attack on the sentinel once a literal has ended early.
  std::string Attack(const std::string& values) const {
    return values + "); delete from " + sentinel_ + "; -- ";
  }

  // Fills the fields with the case's texts in turn and calls `write`. A
  // stored case joins `stored`; a refused one must be refused whole with the
  // export's coded text, and only where a column cannot hold a text (too
  // long, or not in the database's character set). A text that fills its
  // field without a NUL is an invalid parameter.
  template <class Write>
  void WriteCase(const Case& c, const std::vector<Field>& fields, const std::string& code,
                 std::vector<Texts>& stored, Write&& write) {
    Texts expected;
    bool columnsHoldAll = true, terminated = true;
    for (size_t i = 0; i < fields.size(); ++i) {
      const std::string& text = c.texts[i % c.texts.size()];
      std::memset(fields[i].place, 0, fields[i].width);
      std::memcpy(fields[i].place, text.data(), std::min(text.size(), fields[i].width));
      std::string kept = StoredText(text, fields[i].width);
      terminated = terminated && kept.size() < fields[i].width;
      for (unsigned char byte : kept) columnsHoldAll = columnsHoldAll && byte < 0x80;
      columnsHoldAll = columnsHoldAll && kept.size() <= fields[i].column;
      expected.push_back(kept.substr(0, 255));
    }
    if (!terminated) {
      EXPECT_EQ(write(), 1u) << c.label;
      EXPECT_TRUE(std::string(dbGetLastError()).ends_with("1] invalid parameter")) << dbGetLastError();
    } else if (write() == 0) {
      stored.push_back(expected);
    } else {
      EXPECT_FALSE(columnsHoldAll) << c.label << ": " << dbGetLastError();
      EXPECT_EQ(std::string(dbGetLastError()).rfind(code, 0), 0u) << c.label << ": " << dbGetLastError();
    }
  }

  std::string sentinel_;
};

TEST_P(QuotingTest, AlarmTextsAreStoredAsGivenAndFoundByQueries) {
  const std::string table = DropAtEnd(UniqueTableName("alm"));
  ASSERT_EQ(almEnsureTableExist(Token(), table.c_str()), 0u);
  // tagtype 4 and zero numbers keep an escaped tag literal within 32 characters.
  const std::string attack = Attack(",0,0,0,0,0,0,0,NULL,0,NULL,0");
  std::vector<Case> cases = CommonCases();
  cases.push_back({"backslash_ends_tag", {"s", "x\\", attack}});
  cases.push_back({"gbk_ends_tag", {"s", "\xbf\x5c", attack}});
  AlarmRecord record{};
  record.tagtype = 4;
  const std::vector<Field> fields = {{record.station, 32, 32}, {record.tag, 32, 32},
                                     {record.description, 128, 128}, {record.batch, 64, 64}};
  std::vector<Texts> stored;
  for (const Case& c : cases)
    WriteCase(c, fields, "[alm104]", stored,
              [&] { return almSetAlarm(Token(), table.c_str(), &record, sizeof record); });
  EXPECT_EQ(SelectTexts("select station, tag, description, batch from " + table + " order by id"),
            stored);

  // The query lists: each stored station, tag and point beside hostile
  // entries finds exactly the rows that hold them (ids count from 1).
  auto query = [&](uint32_t filter, const AlarmLists& lists) {
    const std::string bytes = AlarmQueryBytes(0, 0xFFFFFFFFu, filter, lists);
    AlarmRecord* block = nullptr;
    uint32_t size = 0;
    std::vector<uint32_t> ids;
    if (almGetAlarmByQuery(Token(), table.c_str(),
                           reinterpret_cast<const AlarmQuery*>(bytes.data()), &block, &size) != 0) {
      // Refused whole only for texts outside the data source's character set.
      auto isAscii = [](char byte) { return (byte & 0x80) == 0; };
      EXPECT_FALSE(std::all_of(bytes.begin() + sizeof(AlarmQuery), bytes.end(), isAscii))
          << dbGetLastError();
      EXPECT_EQ(std::string(dbGetLastError()).rfind("[alm303] ", 0), 0u) << dbGetLastError();
      return std::optional<std::vector<uint32_t>>();
    }
    for (uint32_t k = 0; k < size / sizeof(AlarmRecord); ++k) ids.push_back(block[k].id);
    std::free(block);
    return std::optional(ids);
  };
  // A text ending in a backslash (or, on a GBK host, in a character whose
  // second byte is one) followed by one that closes the condition.
  std::vector<Texts> hostiles = {{"x\\", ")) or 1=1-- "}};
  if (GbkHost()) hostiles.push_back({"\xbf\x5c", ")) or 1=1-- "});
  for (const Texts& hostile : hostiles) {
    for (const Texts& row : stored) {
      auto in = [](const std::string& text, const Texts& list) {
        return std::find(list.begin(), list.end(), text) != list.end();
      };
      const Texts stations = {row[0], hostile[0], hostile[1]}, tags = {row[1], hostile[0], hostile[1]};
      std::vector<uint32_t> byStation, byTag, byPoint;
      for (uint32_t id = 1; id <= stored.size(); ++id) {
        const std::string &station = stored[id - 1][0], &tag = stored[id - 1][1];
        if (in(station, stations)) byStation.push_back(id);
        if (station == row[0] && in(tag, tags)) byTag.push_back(id);
        if ((station == row[0] && tag == row[1]) || (station == hostile[0] && tag == hostile[1]))
          byPoint.push_back(id);
      }
      const std::pair<std::optional<std::vector<uint32_t>>, std::vector<uint32_t>> results[] = {
          {query(SCADASTORE_FILTER_STATIONS, {.stations = stations}), byStation},
          {query(SCADASTORE_FILTER_STATION_TAGS, {.stations = {row[0]}, .tags = tags}), byTag},
          {query(SCADASTORE_FILTER_POINTS,
                 {.points = {Point(row[0], row[1], 4), Point(hostile[0], hostile[1], 4)}}),
           byPoint}};
      for (const auto& [found, expected] : results) {
        if (found) {
          EXPECT_EQ(*found, expected);
        }
      }
    }
  }
}

TEST_P(QuotingTest, LogTextsAreStoredAsGiven) {
  const std::string table = DropAtEnd(UniqueTableName("log"));
  ASSERT_EQ(logEnsureTableExist(Token(), table.c_str()), 0u);
  const std::string attack = Attack(",NULL,NULL,NULL,NULL,0,NULL,NULL");
  std::vector<Case> cases = CommonCases();
  cases.push_back({"backslash_ends_source", {"x\\", attack}});
  cases.push_back({"gbk_ends_source", {"\xbf\x5c", attack}});
  LogRecord record{};
  const std::vector<Field> fields = {
      {record.source, 64, 64},     {record.loginfo, 250, 250}, {record.operator_, 32, 32},
      {record.monitor, 32, 32},    {record.logverify, 64, 64}, {record.ackinfo, 256, 250},
      {record.batch, 64, 64}};
  std::vector<Texts> stored;
  for (const Case& c : cases)
    WriteCase(c, fields, "[log104]", stored,
              [&] { return logSetLog(Token(), table.c_str(), &record, sizeof record); });
  EXPECT_EQ(SelectTexts("select source, loginfo, operator, monitor, logverify, ackinfo, batch from " +
                        table + " order by id"),
            stored);
}

class RecordQuotingTest : public QuotingTest {
 protected:
  void SetUp() override {
    QuotingTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    table_ = DataTable(DropAtEnd(UniqueTableName("rcd")), {{"s1", 12}, {"s2", 12}});
    ASSERT_EQ(sgEnsureTableExist(Token(), table_.info(), nullptr, 0), 0u);
  }

  // The value text of s1 loses its closing quote when cut at 255 characters.
  std::vector<Case> Cases() const {
    std::vector<Case> cases = CommonCases();
    const std::string cut(254, 'A');
    cases.push_back({"cut_quote", {cut, ",char(80,87,78))-- "}});
    cases.push_back({"cut_quote_cast", {cut, "::varchar(1)," + Attack("NULL")}});
    cases.push_back({"cut_quote_where", {cut, " where 1=1-- "}});
    cases.push_back({"backslash_ends_s1", {"x\\", "," + Attack("NULL")}});
    cases.push_back({"gbk_ends_s1", {"\xbf\x5c", "," + Attack("NULL")}});
    cases.push_back({"longest", {std::string(255, 'B')}});
    return cases;
  }
  std::vector<Field> Fields(RecordBuffer& records, size_t k) {
    char* values = reinterpret_cast<char*>(records.data()) + k * table_.recordSize() + 16;
    return {{values, 256, 64}, {values + 256, 256, 64}};
  }
  std::vector<Texts> Stored() {
    return SelectTexts("select s1, s2 from " + std::string(table_.info()->name) + " order by id");
  }

  DataTable table_{"", {}};
};

TEST_P(RecordQuotingTest, SetRecordStoresTextsAsGiven) {
  RecordBuffer record(table_.recordSize(), 1);
  std::vector<Texts> stored;
  for (const Case& c : Cases())
    WriteCase(c, Fields(record, 0), "[rcd104]", stored,
              [&] { return sgSetRecord(Token(), table_.info(), record.record(0), record.bytes()); });
  EXPECT_EQ(Stored(), stored);
}

TEST_P(RecordQuotingTest, BatchStoresTextsAsGiven) {
  RecordBuffer records(table_.recordSize(), 2);
  std::vector<Texts> stored;
  for (const Case& c : Cases()) {
    std::vector<Field> fields = Fields(records, 0);
    for (Field& field : Fields(records, 1)) fields.push_back(field);
    std::vector<Texts> pair;
    WriteCase(c, fields, "[rcd1705]", pair,
              [&] { return sgBatchSetRecord(Token(), table_.info(), records.data(), records.bytes()); });
    for (const Texts& texts : pair) {
      stored.push_back({texts[0], texts[1]});
      stored.push_back({texts[2], texts[3]});
    }
  }
  EXPECT_EQ(Stored(), stored);
}

TEST_P(RecordQuotingTest, ModifyRewritesOnlyItsRow) {
  RecordBuffer record(table_.recordSize(), 1);
  for (const char* text : {"one", "two", "three"}) {
    record.PutText(0, 16, text);
    record.PutText(0, 16 + 256, text);
    ASSERT_EQ(sgSetRecord(Token(), table_.info(), record.record(0), record.bytes()), 0u);
  }
  std::vector<Texts> stored = {{"two", "two"}};
  for (const Case& c : Cases())
    WriteCase(c, Fields(record, 0), "[rcd1103]", stored, [&] {
      return sgModifyRecordByIndex(Token(), table_.info(), 2, record.record(0), record.bytes());
    });
  EXPECT_EQ(Stored(), (std::vector<Texts>{{"one", "one"}, stored.back(), {"three", "three"}}));
}

// A host in a GBK locale writes and reads back its own texts; the backtick
// dialect's data source speaks UTF-8.
TEST_P(QuotingTest, GbkHostReadsBackItsOwnTexts) {
  if (GetParam().name != "Mariadb2GbkHost") GTEST_SKIP() << "GBK host on a UTF-8 source only";
  const std::string text = "\xd6\xd0\xce\xc4 \xbf\x5c";  // two Chinese characters, one ending in '\'
  auto readsBack = [&](auto ensure, auto write, auto readAll, auto record, auto field) {
    const std::string table = DropAtEnd(UniqueTableName("gbk"));
    ASSERT_EQ(ensure(Token(), table.c_str()), 0u);
    std::strcpy(record.*field, text.c_str());
    ASSERT_EQ(write(Token(), table.c_str(), &record, sizeof record), 0u) << dbGetLastError();
    decltype(record) back{};
    ASSERT_EQ(readAll(Token(), table.c_str(), &back, sizeof back), 0u);
    EXPECT_EQ(std::string(back.*field), text);
  };
  readsBack(almEnsureTableExist, almSetAlarm, almGetAllAlarm, AlarmRecord{},
            &AlarmRecord::description);
  readsBack(logEnsureTableExist, logSetLog, logGetAllLog, LogRecord{}, &LogRecord::loginfo);
}

INSTANTIATE_TEST_SUITE_P(Databases, QuotingTest, ::testing::ValuesIn(QuotingDatabases()),
                         DatabaseName);
INSTANTIATE_TEST_SUITE_P(Databases, RecordQuotingTest, ::testing::ValuesIn(QuotingDatabases()),
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
  std::string LongName(size_t length) {
    std::string name = UniqueTableName("cut");
    return DropAtEnd(name + std::string(length - name.size(), 'n'));
  }
  // A data table of one float column v with rows at times 1000, 2000, 9000.
  DataTable ThreeRows(size_t nameLength) {
    DataTable table(LongName(nameLength), {{"v", 3}});
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

TEST_P(LimitTest, DataStatementsThatDoNotFitDoNotRun) {
  DataTable table = ThreeRows(236);
  const DataTableInfo* info = table.info();
  const std::string name = info->name;
  RecordBuffer record(table.recordSize(), 1);
  void* block = nullptr;
  uint32_t size = 0;
  // The id lookup's select is cut first ("... from "t" order by" loses its
  // order): its refusal ends the delete.
  EXPECT_TRUE(Refused(sgDeleteRecordByIndex(Token(), info, 1), 1, "[rcd903] "));
  EXPECT_TRUE(Refused(sgGetRecordByIndex(Token(), info, 3, record.record(0), record.bytes()), 1,
                      "[rcd1003] "));
  EXPECT_TRUE(Refused(sgGetRecordByTime(Token(), info, 1000, record.record(0), record.bytes()), 1,
                      "[rcd403] "));
  EXPECT_TRUE(Refused(sgGetAllRecordOfInterval(Token(), info, 1000, 1500, &block, &size), 1,
                      "[rcd203] "));
  EXPECT_TRUE(Refused(sgGetRecordCount(Token(), info), 0xFFFFFFFFu, "[rcd1303] "));
  EXPECT_EQ(block, nullptr);
  EXPECT_EQ(RowCount(name), 3);

  // The aggregate's table name and bounds share a 128-byte buffer.
  for (size_t length : {105, 125, 236}) {
    DataTable stats = ThreeRows(length);
    RecordBuffer slots(stats.recordSize(), 24);
    EXPECT_TRUE(Refused(sgGetRecordStatValueOfInterval(Token(), stats.info(), 1, 1000, 4600,
                                                       slots.record(0), stats.recordSize()),
                        1, "[rcd1405] failed to create sql: "));
    EXPECT_TRUE(Refused(sgGetRecord_Day(Token(), stats.info(), 0, 0, 0, 0, 0, slots.data(),
                                        slots.bytes()),
                        1, "[rcd505] failed to create sql: "));
    EXPECT_TRUE(Refused(sgGetRecord_Month(Token(), stats.info(), 0, 0, 0, 0, 1, slots.data(),
                                          stats.recordSize()),
                        1, "[rcd605] failed to create sql: "));
    RecordBuffer year(stats.recordSize(), 12);
    EXPECT_TRUE(Refused(sgGetRecord_Year(Token(), stats.info(), 0, 0, 2024, year.data(), year.bytes()),
                        1, "[rcd705] failed to create sql: "));
  }
}

// The alarm and log create statements hold names of about 100 characters; a
// longer name reaches an existing table on PostgreSQL, which keeps the first
// 63 characters of every name.
TEST_P(LimitTest, AlarmAndLogStatementsThatDoNotFitDoNotRun) {
  if (kind() != 5) GTEST_SKIP() << "names are used whole";
  const std::string alarms = LongName(236);
  ASSERT_EQ(almEnsureTableExist(Token(), alarms.substr(0, 63).c_str()), 0u);
  AlarmRecord alarm[2] = {};
  ASSERT_EQ(almSetAlarm(Token(), alarms.c_str(), alarm, sizeof alarm), 0u) << dbGetLastError();
  AlarmQuery query{0, 100, 0, 0, 0, 0, 0, 0};
  AlarmRecord* block = nullptr;
  uint32_t size = 0;
  const char* a = alarms.c_str();
  EXPECT_TRUE(Refused(almGetLastID(Token(), a), 0, "[alm703] "));
  EXPECT_TRUE(Refused(almGetAlarmCount(Token(), a), 0, "[alm403] "));
  EXPECT_TRUE(Refused(almGetAllAlarm(Token(), a, alarm, sizeof alarm), 1, "[alm203] "));
  EXPECT_TRUE(Refused(almGetAlarmByQuery(Token(), a, &query, &block, &size), 1, "[alm303] "));
  EXPECT_TRUE(Refused(almConfirmAlarm(Token(), a, 1, 1), 1, "[alm503] "));
  EXPECT_TRUE(Refused(almSetRecoverAlarm(Token(), a, 1, 1), 1, "[alm803] "));
  EXPECT_EQ(SelectTexts("select count(*), sum(status), sum(recovertime) from " + alarms),
            (std::vector<Texts>{{"2", "0", "0"}}));

  const std::string logs = LongName(236);
  ASSERT_EQ(logEnsureTableExist(Token(), logs.substr(0, 63).c_str()), 0u);
  LogRecord entry{};
  ASSERT_EQ(logSetLog(Token(), logs.c_str(), &entry, sizeof entry), 0u) << dbGetLastError();
  const char* l = logs.c_str();
  EXPECT_TRUE(Refused(logGetLastID(Token(), l), 0, "[log503] "));
  EXPECT_TRUE(Refused(logGetLogCount(Token(), l), 0, "[log403] "));
  EXPECT_TRUE(Refused(logGetAllLog(Token(), l, &entry, sizeof entry), 1, "[log203] "));
}

// Rows times recordSize beyond 32 bits cannot be handed out with their size.
TEST_P(LimitTest, BlockSizeThatWouldWrapIsRefused) {
  DataTable table(DropAtEnd(UniqueTableName("wrap")), {{"v", 3}});
  ASSERT_EQ(sgEnsureTableExist(Token(), table.info(), nullptr, 0), 0u);
  RecordBuffer record(table.recordSize(), 2);
  for (DataRecord* row : {record.record(0), record.record(1)})
    ASSERT_EQ(sgSetRecord(Token(), table.info(), row, table.recordSize()), 0u);
  table.info()->recordSize = 0x80000000u;
  void* block = reinterpret_cast<void*>(0x10);
  uint32_t size = 7;
  EXPECT_TRUE(Refused(sgGetRecord(Token(), table.info(), &block, &size, nullptr), 1,
                      "[rcd205] failed to alloc memory"));
  if (block != reinterpret_cast<void*>(0x10)) std::free(block);
  EXPECT_EQ(block, reinterpret_cast<void*>(0x10));
}

INSTANTIATE_TEST_SUITE_P(Databases, LimitTest, ::testing::ValuesIn(Databases({3})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
