#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "alarm/alarm_statements.h"
#include "scadastore.h"

namespace scadastore::alarm {
namespace {

// One kind of each dialect.
constexpr DbKind Backtick = 2, Bracket = 1, DoubleQuote = 5;

struct Lists {
  std::vector<int32_t> types = {};
  std::vector<std::string> stations = {}, tags = {};
  std::vector<PointKey> points = {};
};

// The statement of an AlarmQuery head followed by its four lists, as a caller lays them out.
std::string Query(DbKind dialect, uint32_t start, uint32_t end, uint32_t filter,
                  const Lists& lists = {}) {
  const AlarmQuery head{start, end, 0, filter, uint32_t(lists.types.size()),
                        uint32_t(lists.stations.size()), uint32_t(lists.tags.size()),
                        uint32_t(lists.points.size())};
  std::vector<unsigned char> bytes;
  auto append = [&bytes](const void* data, size_t size) {
    bytes.insert(bytes.end(), static_cast<const unsigned char*>(data),
                 static_cast<const unsigned char*>(data) + size);
  };
  append(&head, sizeof head);
  for (int32_t type : lists.types) append(&type, 4);
  for (const auto* names : {&lists.stations, &lists.tags})
    for (const std::string& name : *names) {
      char field[32] = {};
      name.copy(field, sizeof field - 1);
      append(field, sizeof field);
    }
  for (const PointKey& point : lists.points) append(&point, sizeof point);
  return QueryStatement(dialect, "alarm", bytes.data()).text;
}

TEST(AlarmStatements, TableStatementsInEveryDialect) {
  const std::string columns =
      " (`id` integer NOT NULL PRIMARY KEY, `station` varchar(32), `tag` varchar(32), "
      "`tagtype` integer, `alarmtype` integer, `value` float, `status` integer, "
      "`recovertime` integer, `arisetime` integer, `ip` integer, `description` varchar(128), "
      "`millisecond` integer, `batch` varchar(64), `alarmlevel` integer, `rsvd` varchar(128))";
  std::string bracketColumns = columns, quoteColumns = columns;
  for (size_t i = 0, n = 0; i < columns.size(); ++i) {
    if (columns[i] != '`') continue;
    bracketColumns[i] = n++ % 2 == 0 ? '[' : ']';
    quoteColumns[i] = '"';
  }
  EXPECT_EQ(CreateTableStatement(Backtick, "a1").text,
            "create table `a1`" + columns + " ENGINE=InnoDB DEFAULT CHARSET=utf8");
  EXPECT_EQ(CreateTableStatement(Bracket, "a1").text, "create table [a1]" + bracketColumns);
  EXPECT_EQ(CreateTableStatement(DoubleQuote, "a1").text, "create table \"a1\"" + quoteColumns);
  EXPECT_EQ(ConfirmStatement(Bracket, "a1", 0, 7).text, "update [a1] set [status]=0 where [id]=7");
  EXPECT_EQ(RecoverStatement(Backtick, "a1", 4294967295u, 7).text,
            "update `a1` set `recovertime`=4294967295 where `id`=7");
}

TEST(AlarmStatements, InsertTakesFieldsInColumnOrderFromUnalignedRecords) {
  // The id and confirmed fields (999, 1) are never read; the value travels in single precision.
  AlarmRecord record{999, "st1", "t1", 1, 0.1, 3, 1, 1000, 0xC0A80001,
                     2, "high", 250, 1010, "b", 5, {}};
  auto statement = [&record](DbKind dialect) {
    std::vector<unsigned char> unaligned(sizeof record + 1);
    std::memcpy(unaligned.data() + 1, &record, sizeof record);
    return InsertStatement(dialect, "a1", 42, unaligned.data() + 1);
  };
  auto insert = [&](DbKind dialect) { return statement(dialect).text; };
  EXPECT_EQ(insert(Bracket),
            "insert into [a1] ([id], [station], [tag], [tagtype], [alarmtype], [value], [status], "
            "[recovertime], [arisetime], [ip], [description], [millisecond], [batch], "
            "[alarmlevel]) values(42, 'st1', 't1', 1, 3, 0.10000000149011612, 2, 1010, 1000, "
            "3232235521, 'high', 250, 'b', 5)");
  // What the database receives: the texts as bound values.
  EXPECT_EQ(statement(Bracket).sql,
            "insert into [a1] ([id], [station], [tag], [tagtype], [alarmtype], [value], [status], "
            "[recovertime], [arisetime], [ip], [description], [millisecond], [batch], "
            "[alarmlevel]) values(42, ?, ?, 1, 3, 0.10000000149011612, 2, 1010, 1000, "
            "3232235521, ?, 250, ?, 5)");
  EXPECT_EQ(statement(Bracket).texts, (std::vector<std::string>{"st1", "t1", "high", "b"}));

  record.value = 123456789;
  EXPECT_NE(insert(Bracket).find("'t1', 1, 3, 123456792, 2,"), std::string::npos);
  // Under tag type 4 only the first byte of the value counts, as a number.
  record.tagtype = 4;
  std::memset(&record.value, 0xFF, sizeof record.value);
  reinterpret_cast<unsigned char*>(&record.value)[0] = 5;
  EXPECT_NE(insert(Bracket).find("'t1', 4, 3, 5, 2,"), std::string::npos) << insert(Bracket);

  // Shown with its quotes doubled, sent as it stands, in every dialect.
  std::strcpy(record.description, "it's a\\b");
  std::memset(record.station, 'S', sizeof record.station);  // no NUL: the width ends it
  EXPECT_NE(insert(Bracket).find("'" + std::string(32, 'S') + "', 't1'"), std::string::npos);
  EXPECT_NE(insert(Backtick).find("'it''s a\\b'"), std::string::npos) << insert(Backtick);
  EXPECT_EQ(statement(Backtick).texts,
            (std::vector<std::string>{std::string(32, 'S'), "t1", "it's a\\b", "b"}));
  // Past its 2048-byte buffer the statement is shown cut and incomplete.
  const Statement cut = InsertStatement(Bracket, std::string(2000, 'n').c_str(), 1, &record);
  EXPECT_FALSE(cut.complete);
  EXPECT_EQ(cut.text.size(), 2047u);
}

TEST(AlarmStatements, QueryConditionsAndListPrecedence) {
  const std::string range =
      "select * from [alarm] where ([arisetime] >= 100) and ([arisetime] <= 200)";
  const std::string order = " order by [id] asc";
  const std::string station = range + " and ([station] = 's1')" + order;
  const std::string tags =
      range + " and ([station] = 's1') and (([tag] = 't1') or ([tag] = 't2') or ([tag] = 't3'))" +
      order;
  // Every list is filled, so each condition proves it found its own list.
  const Lists all{{1, 2}, {"s1"}, {"t1", "t2", "t3"}, {{"p's", "q", 65535}, {"p2", "q2", 0}}};
  auto bracket = [](uint32_t filter, const Lists& lists = {}) {
    return Query(Bracket, 100, 200, filter, lists);
  };
  const std::pair<std::string, std::string> cases[] = {
      {bracket(0x0200 | 8, {.types = {1, 2}}),
       "select * from [alarm] where ([arisetime] >= 100) and ([arisetime] <= 200) and "
       "([alarmlevel] >= 2) and (([alarmtype] = 1) or ([alarmtype] = 2)) order by [id] asc"},
      {bracket(0x0200 | 8, {.types = {1}}),
       range + " and ([alarmlevel] >= 2) and ([alarmtype] = 1)" + order},
      {bracket(8, {.types = {-1}}), range + " and ([alarmtype] = -1)" + order},
      {bracket(0xFF00), range + " and ([alarmlevel] >= 255)" + order},
      // Bits beyond the level byte and the list bits are not read.
      {bracket(0xFFFF0301, {.types = {1}}), range + " and ([alarmlevel] >= 3)" + order},
      {Query(Backtick, 7, 9, 0),
       "select * from `alarm` where (`arisetime` >= 7) and (`arisetime` <= 9) order by `id` asc"},
      {Query(DoubleQuote, 7, 9, 0),
       "select * from \"alarm\" where (\"arisetime\" >= 7) and (\"arisetime\" <= 9) order by "
       "\"id\" asc"},
      {bracket(2, all), station},
      {bracket(4, all), tags},
      {bracket(16, all),
       range + " and ((([station] = 'p''s') and ([tag] = 'q') and ([tagtype] = 65535)) or "
               "(([station] = 'p2') and ([tag] = 'q2') and ([tagtype] = 0)))" + order},
      {bracket(16, {.points = {{"p", "q", 3}}}),
       range + " and (([station] = 'p') and ([tag] = 'q') and ([tagtype] = 3))" + order},
      // The first set bit in the order 8, 2, 4, 16 decides, even over an empty list.
      {bracket(8 | 2 | 4 | 16, all),
       range + " and (([alarmtype] = 1) or ([alarmtype] = 2))" + order},
      {bracket(2 | 4 | 16, all), station},
      {bracket(4 | 16, all), tags},
      {bracket(8 | 2, {.stations = {"a", "b"}}), range + order},
      {bracket(4 | 16, {.stations = {"a", "b"}, .tags = {"t"}, .points = {{"a", "t", 1}}}),
       range + order},
      {bracket(4, {.stations = {"a"}}), range + order},
  };
  for (size_t i = 0; i < std::size(cases); ++i) {
    SCOPED_TRACE("case " + std::to_string(i));
    EXPECT_EQ(cases[i].first, cases[i].second);
  }
}

}  // namespace
}  // namespace scadastore::alarm
