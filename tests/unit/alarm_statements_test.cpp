#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "alarm/alarm_statements.h"
#include "scadastore.h"

namespace scadastore::alarm {
namespace {

constexpr SqlDialect kBracket = SqlDialect::Bracket;
constexpr SqlDialect kBacktick = SqlDialect::Backtick;
constexpr SqlDialect kDoubleQuote = SqlDialect::DoubleQuote;

// An AlarmQuery head followed by its four lists, as a caller lays it out.
class QueryBytes {
 public:
  QueryBytes(uint32_t start, uint32_t end, uint32_t filter) {
    head_.startTime = start;
    head_.endTime = end;
    head_.filter = filter;
  }
  QueryBytes& Type(int32_t type) { return ++head_.typeCount, Append(types_, &type, 4); }
  QueryBytes& Station(const char* name) { return ++head_.stationCount, AppendText(stations_, name); }
  QueryBytes& Tag(const char* name) { return ++head_.tagCount, AppendText(tags_, name); }
  QueryBytes& Point(const char* station, const char* tag, uint16_t tagtype) {
    PointKey point{};
    std::strncpy(point.station, station, sizeof point.station - 1);
    std::strncpy(point.tag, tag, sizeof point.tag - 1);
    point.tagtype = tagtype;
    return ++head_.pointCount, Append(points_, &point, sizeof point);
  }
  std::string Statement(SqlDialect dialect, const char* table = "alarm") {
    std::vector<unsigned char> bytes(sizeof head_);
    std::memcpy(bytes.data(), &head_, sizeof head_);
    for (auto* list : {&types_, &stations_, &tags_, &points_})
      bytes.insert(bytes.end(), list->begin(), list->end());
    return QueryStatement(dialect, table, bytes.data());
  }

 private:
  QueryBytes& Append(std::vector<unsigned char>& list, const void* data, size_t size) {
    auto* bytes = static_cast<const unsigned char*>(data);
    list.insert(list.end(), bytes, bytes + size);
    return *this;
  }
  QueryBytes& AppendText(std::vector<unsigned char>& list, const char* text) {
    char field[32] = {};
    std::strncpy(field, text, sizeof field - 1);
    return Append(list, field, sizeof field);
  }
  AlarmQuery head_{};
  std::vector<unsigned char> types_, stations_, tags_, points_;
};

const std::string kRange = "select * from [alarm] where ([arisetime] >= 100) and ([arisetime] <= 200)";
const std::string kOrder = " order by [id] asc";

TEST(AlarmStatements, TableStatementsInEveryDialect) {
  const std::string columns =
      " (`id` integer NOT NULL PRIMARY KEY, `station` varchar(32), `tag` varchar(32), "
      "`tagtype` integer, `alarmtype` integer, `value` float, `status` integer, "
      "`recovertime` integer, `arisetime` integer, `ip` integer, `description` varchar(128), "
      "`millisecond` integer, `batch` varchar(64), `alarmlevel` integer, `rsvd` varchar(128))";
  EXPECT_EQ(CreateTableStatement(kBacktick, "a1"),
            "create table `a1`" + columns + " ENGINE=InnoDB DEFAULT CHARSET=utf8");
  std::string bracketColumns = columns, quoteColumns = columns;
  for (size_t i = 0, n = 0; i < columns.size(); ++i) {
    if (columns[i] != '`') continue;
    bracketColumns[i] = n++ % 2 == 0 ? '[' : ']';
    quoteColumns[i] = '"';
  }
  EXPECT_EQ(CreateTableStatement(kBracket, "a1"), "create table [a1]" + bracketColumns);
  EXPECT_EQ(CreateTableStatement(kDoubleQuote, "a1"), "create table \"a1\"" + quoteColumns);

  EXPECT_EQ(CreateIndexStatement(kBacktick, "a1"), "create index `idx_a1` on `a1` (`id`)");
  EXPECT_EQ(CreateIndexStatement(kBracket, "a1"), "create index [idx_a1] on [a1] ([id])");
  EXPECT_EQ(CreateIndexStatement(kDoubleQuote, "a1"), "create index \"idx_a1\" on \"a1\" (\"id\")");

  // 111 characters is the longest name whose index statement stays whole.
  const std::string longest(111, 'n'), tooLong(112, 'n');
  EXPECT_EQ(CreateIndexStatement(kBacktick, longest.c_str()).back(), ')');
  EXPECT_EQ(CreateIndexStatement(kBacktick, tooLong.c_str()).size(), 255u);

  EXPECT_EQ(LargestIdStatement(kDoubleQuote, "a1", kBufferSize), "select max(\"id\") from \"a1\"");
  EXPECT_EQ(ConfirmStatement(kBracket, "a1", 0, 7), "update [a1] set [status]=0 where [id]=7");
  EXPECT_EQ(RecoverStatement(kBacktick, "a1", 4294967295u, 7),
            "update `a1` set `recovertime`=4294967295 where `id`=7");
  EXPECT_EQ(SelectAllStatement(kDoubleQuote, "a1"), "select * from \"a1\" order by \"id\" asc");
  EXPECT_EQ(CountStatement(kBracket, "a1"), "select count(*) from [a1]");
}

AlarmRecord Record() {
  AlarmRecord record{};
  record.id = 999;  // never read
  std::strcpy(record.station, "st1");
  std::strcpy(record.tag, "t1");
  record.tagtype = 1;
  record.value = 0.1;
  record.alarmtype = 3;
  record.confirmed = 1;  // never read
  record.arisetime = 1000;
  record.ip = 0xC0A80001;
  record.status = 2;
  std::strcpy(record.description, "high");
  record.millisecond = 250;
  record.recovertime = 1010;
  std::strcpy(record.batch, "b");
  record.alarmlevel = 5;
  return record;
}

TEST(AlarmStatements, InsertTakesFieldsInColumnOrderAndTheValueInSinglePrecision) {
  AlarmRecord record = Record();
  EXPECT_EQ(InsertStatement(kBracket, "a1", 42, &record),
            "insert into [a1] ([id], [station], [tag], [tagtype], [alarmtype], [value], [status], "
            "[recovertime], [arisetime], [ip], [description], [millisecond], [batch], "
            "[alarmlevel]) values(42, 'st1', 't1', 1, 3, 0.10000000149011612, 2, 1010, 1000, "
            "3232235521, 'high', 250, 'b', 5)");

  auto valueText = [](const AlarmRecord& r) {
    std::string sql = InsertStatement(kDoubleQuote, "a1", 1, &r);
    size_t start = sql.find("'t1', ") + 6;
    start = sql.find(", ", sql.find(", ", start) + 2) + 2;  // skip tagtype and alarmtype
    return sql.substr(start, sql.find(',', start) - start);
  };
  record.value = 123456789;
  EXPECT_EQ(valueText(record), "123456792");
  record.value = 25.5;
  EXPECT_EQ(valueText(record), "25.5");

  // Under tag type 4 only the first byte of the value counts, as a number.
  record.tagtype = 4;
  std::memset(&record.value, 0xFF, sizeof record.value);
  reinterpret_cast<unsigned char*>(&record.value)[0] = 5;
  EXPECT_EQ(valueText(record), "5");
}

TEST(AlarmStatements, InsertCopesWithQuotesFullFieldsAndUnalignedRecords) {
  AlarmRecord record = Record();
  std::strcpy(record.description, "it's a\\b");
  std::memset(record.station, 'S', sizeof record.station);  // no NUL: the width ends it
  std::vector<unsigned char> unaligned(sizeof record + 1);
  std::memcpy(unaligned.data() + 1, &record, sizeof record);

  const std::string bracket = InsertStatement(kBracket, "a1", 1, unaligned.data() + 1);
  EXPECT_NE(bracket.find("'it''s a\\b'"), std::string::npos) << bracket;
  EXPECT_NE(bracket.find("'" + std::string(32, 'S') + "', 't1'"), std::string::npos) << bracket;
  EXPECT_NE(InsertStatement(kBacktick, "a1", 1, &record).find("'it''s a\\\\b'"), std::string::npos);
}

TEST(AlarmStatements, QueryRangeLevelAndAlarmTypes) {
  EXPECT_EQ(QueryBytes(100, 200, 0x0200 | 8).Type(1).Type(2).Statement(kBracket),
            kRange + " and ([alarmlevel] >= 2) and (([alarmtype] = 1) or ([alarmtype] = 2))" +
                kOrder);
  EXPECT_EQ(QueryBytes(100, 200, 0x0200 | 8).Type(1).Statement(kBracket),
            kRange + " and ([alarmlevel] >= 2) and ([alarmtype] = 1)" + kOrder);
  EXPECT_EQ(QueryBytes(100, 200, 8).Type(-1).Statement(kBracket),
            kRange + " and ([alarmtype] = -1)" + kOrder);
  EXPECT_EQ(QueryBytes(100, 200, 0xFF00).Statement(kBracket),
            kRange + " and ([alarmlevel] >= 255)" + kOrder);
  // Bits beyond the level byte and the list bits are not read.
  EXPECT_EQ(QueryBytes(100, 200, 0xFFFF0301).Type(1).Statement(kBracket),
            kRange + " and ([alarmlevel] >= 3)" + kOrder);
  EXPECT_EQ(QueryBytes(7, 9, 0).Statement(kBacktick, "x"),
            "select * from `x` where (`arisetime` >= 7) and (`arisetime` <= 9) order by `id` asc");
  EXPECT_EQ(QueryBytes(7, 9, 0).Statement(kDoubleQuote, "x"),
            "select * from \"x\" where (\"arisetime\" >= 7) and (\"arisetime\" <= 9) order by "
            "\"id\" asc");
}

TEST(AlarmStatements, QueryListsFollowOneAnotherWhicheverIsUsed) {
  // Every list is filled, so each condition proves it found its own list.
  auto filled = [](uint32_t filter) {
    return QueryBytes(100, 200, filter)
        .Type(1).Type(2)
        .Station("s1")
        .Tag("t1").Tag("t2").Tag("t3")
        .Point("p's", "q", 65535).Point("p2", "q2", 0);
  };
  EXPECT_EQ(filled(2).Statement(kBracket), kRange + " and ([station] = 's1')" + kOrder);
  EXPECT_EQ(filled(4).Statement(kBracket),
            kRange + " and ([station] = 's1') and (([tag] = 't1') or ([tag] = 't2') or "
                     "([tag] = 't3'))" + kOrder);
  EXPECT_EQ(filled(16).Statement(kBracket),
            kRange + " and ((([station] = 'p''s') and ([tag] = 'q') and ([tagtype] = 65535)) or "
                     "(([station] = 'p2') and ([tag] = 'q2') and ([tagtype] = 0)))" + kOrder);
  EXPECT_EQ(QueryBytes(100, 200, 16).Point("p", "q", 3).Statement(kBracket),
            kRange + " and (([station] = 'p') and ([tag] = 'q') and ([tagtype] = 3))" + kOrder);

  // The first set bit in the order 8, 2, 4, 16 decides, even over an empty list.
  EXPECT_EQ(filled(8 | 2 | 4 | 16).Statement(kBracket),
            kRange + " and (([alarmtype] = 1) or ([alarmtype] = 2))" + kOrder);
  EXPECT_EQ(filled(2 | 4 | 16).Statement(kBracket), filled(2).Statement(kBracket));
  EXPECT_EQ(filled(4 | 16).Statement(kBracket), filled(4).Statement(kBracket));
  EXPECT_EQ(QueryBytes(100, 200, 8 | 2).Station("a").Station("b").Station("c").Statement(kBracket),
            kRange + kOrder);
  EXPECT_EQ(QueryBytes(100, 200, 4 | 16).Station("a").Station("b").Tag("t")
                .Point("a", "t", 1).Statement(kBracket),
            kRange + kOrder);
  EXPECT_EQ(QueryBytes(100, 200, 4).Station("a").Statement(kBracket), kRange + kOrder);
}

}  // namespace
}  // namespace scadastore::alarm
