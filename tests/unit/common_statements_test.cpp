#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "alarm/alarm_statements.h"
#include "core/common_statements.h"
#include "core/time_index.h"
#include "log/log_statements.h"
#include "record/record_statements.h"
#include "support/alarm_query.h"
#include "support/data_tables.h"

namespace scadastore {
namespace {

// The hash is part of every index created so far: it must never change. Texts
// cut at their buffer are incomplete.
TEST(CommonStatements, IndexNamesAreStableAndCutTextsIncomplete) {
  EXPECT_EQ(CreateTimeIndexStatement(1, "t", "time").text,
            "create index [t_time_f10c3da3] on [t] ([time])");
  EXPECT_EQ(TimeIndexName("alarms"), "alarms_time_77658e0b");
  EXPECT_EQ(TimeIndexName("\xe6\x8a\xa5\xe8\xad\xa6"), "time_26442e77");  // no plain letters
  EXPECT_EQ(TimeIndexName("plant-2 [north]").rfind("plant2north_time_", 0), 0u);
  const std::string a = std::string(199, 'n') + "a", b = std::string(199, 'n') + "b";
  EXPECT_EQ(TimeIndexName(a).size(), 54u);
  EXPECT_NE(TimeIndexName(a), TimeIndexName(b));
  // Any name a data table takes still gives a whole statement.
  EXPECT_TRUE(CreateTimeIndexStatement(2, std::string(435, 'n'), "arisetime").complete);

  // 111 characters is the longest name whose index statement stays whole.
  EXPECT_TRUE(CreateIndexStatement(2, std::string(111, 'n')).complete);
  const Statement index = CreateIndexStatement(2, std::string(112, 'n'));
  EXPECT_FALSE(index.complete);
  EXPECT_EQ(index.text.size(), 255u);
  // The same name fits a writer's 2048-byte buffer but is cut in the short one.
  const std::string name(300, 'n');
  EXPECT_TRUE(LargestIdStatement(2, name, 2048).complete);
  const Statement cut = LargestIdStatement(2, name);
  EXPECT_FALSE(cut.complete);
  EXPECT_EQ(cut.text.size(), 255u);
  // Past its 2048-byte buffer an alarm insert is shown cut and incomplete.
  AlarmRecord alarm{};
  const Statement insert = alarm::InsertStatement(1, std::string(2000, 'n').c_str(), 1, &alarm);
  EXPECT_FALSE(insert.complete);
  EXPECT_EQ(insert.text.size(), 2047u);
}

// Every builder that takes a caller's text sends `?` in its place and the text
// bound whole, in every dialect; the databases then see no caller text as SQL.
TEST(CommonStatements, CallerTextsAreOnlyEverBound) {
  const std::string hostile = "it's \\' -- ;";
  AlarmRecord alarm{};
  LogRecord log{};
  for (auto [field, width] : {std::pair{alarm.station, 32}, {alarm.tag, 32}, {alarm.description, 128},
                              {alarm.batch, 64}, {log.source, 64}, {log.loginfo, 250},
                              {log.operator_, 32}, {log.monitor, 32}, {log.logverify, 64},
                              {log.ackinfo, 256}, {log.batch, 64}})
    std::strncpy(field, hostile.c_str(), width);
  testing::DataTable data("t", {{"a", 3}, {"c", 12}, {"d", 12}});
  const record::TableLayout table = record::DescribeTable(*data.info());
  testing::RecordBuffer records(table.recordSize, 2);
  for (size_t at : {24u, 280u, table.recordSize + 24u, table.recordSize + 280u})
    records.PutText(0, at, hostile);
  const testing::AlarmLists lists{{}, {hostile}, {hostile, hostile},
                                  {testing::Point(hostile, hostile, 1)}};
  for (DbKind kind = 1; kind <= 6; ++kind) {
    std::vector<std::pair<Statement, size_t>> built = {
        {alarm::InsertStatement(kind, "a", 1, &alarm), 4},
        {log::InsertStatement(kind, "l", 1, &log), 7},
        {record::InsertStatement(kind, table, records.data(), table.recordSize, 1), 2},
        {record::UpdateStatement(kind, table, records.data(), 1), 2},
        {record::BatchStatement(kind, table, records.data(), records.bytes(), 1), 4}};
    for (uint32_t filter : {SCADASTORE_FILTER_STATIONS, SCADASTORE_FILTER_STATION_TAGS,
                            SCADASTORE_FILTER_POINTS})
      built.push_back({alarm::QueryStatement(
                           kind, "a", testing::AlarmQueryBytes(0, 1, filter, lists).data()),
                       filter == SCADASTORE_FILTER_STATIONS ? 1u
                       : filter == SCADASTORE_FILTER_POINTS ? 2u : 3u});
    for (size_t i = 0; i < built.size(); ++i) {
      const auto& [statement, texts] = built[i];
      SCOPED_TRACE("kind " + std::to_string(kind) + ", statement " + std::to_string(i));
      EXPECT_TRUE(statement.complete);
      EXPECT_EQ(statement.sql.find('\''), std::string::npos) << statement.sql;
      EXPECT_EQ(std::count(statement.sql.begin(), statement.sql.end(), '?'), long(texts));
      EXPECT_EQ(statement.texts, std::vector<std::string>(texts, hostile));
    }
  }
  // Log time ranges take the unsigned end as it is.
  EXPECT_NE(log::TimeRangeStatement(2, "ev", 10, 4294967295u).text.find("`logtime` <= 4294967295)"),
            std::string::npos);
}

}  // namespace
}  // namespace scadastore
