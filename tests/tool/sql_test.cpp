// sql: every column, typed, time cells alike on every database; only a
// select runs without --write; a failure carries the database's reason.
#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

class Sql : public EachDatabase {
 protected:
  void SetUp() override {
    EachDatabase::SetUp();
    if (IsSkipped()) return;
    FreshTable("log", "tool_journal");
    // 2035 lies beyond any window of plausible dates.
    for (const char* time : {"2024-05-01 08:00:00", "2035-01-01 00:00:00"})
      Ok({"logs", "add", "tool_journal", "--type", "7", "--source", "a,b", "--info", "i",
          "--time", time});
  }
};

TEST_P(Sql, EveryColumnTypedAndOnlyASelectWithoutWrite) {
  std::string csv = Ok({"sql", "select id, logtime, logtype, 2.5 as x from tool_journal order by id",
                        "--format", "csv"});
  EXPECT_EQ(csv, "id,logtime,logtype,x\n1,2024-05-01 08:00:00,7,2.5\n2,2035-01-01 00:00:00,7,2.5\n");
  nlohmann::json json = Json({"sql", "select id, source, logtime, logtype as n, "
                                     "logtime + 1 as later from tool_journal order by id",
                              "--time-columns", "later"});
  ASSERT_EQ(json.size(), 2u);
  EXPECT_EQ(json[0], nlohmann::json::parse(
                         R"({"id":1,"source":"a,b","logtime":1714550400,"n":7,"later":1714550401})"));
  EXPECT_EQ(Json({"sql", "select * from tool_journal where id > 5"}), nlohmann::json::array());

  for (const char* statement : {"delete from tool_journal", "drop table tool_journal"}) {
    ToolRun refused = Run({"sql", statement});
    EXPECT_EQ(refused.status, 2) << statement;
    EXPECT_TRUE(Contains(refused.err, "only a select runs without --write"));
  }
  EXPECT_EQ(Ok({"sql", "with gone as (select 1 as n) select n from gone", "--format", "csv"}),
            "n\n1\n");
  Ok({"sql", "delete from tool_journal where id = 2", "--write"});
  EXPECT_EQ(Ok({"logs", "count", "tool_journal"}), "1\n");

  const std::string missing = GetParam() == Database::Sqlite     ? "no such table"
                              : GetParam() == Database::Postgres ? "[42P01]"
                                                                 : "[42S02]";
  ToolRun bad = Run({"sql", "select * from nothing_here"});
  EXPECT_EQ(bad.status, 1);
  EXPECT_TRUE(Contains(bad.err, "nothing_here"));
  EXPECT_TRUE(Contains(bad.err, missing));
  // A library call's failure: its coded text, then the database's reason.
  ToolRun library = Run({"logs", "nothing_here"});
  EXPECT_EQ(library.status, 1);
  EXPECT_TRUE(Contains(library.err, "failed to open table: select"));
  EXPECT_TRUE(Contains(library.err, "; the database says: ["));
  EXPECT_TRUE(Contains(library.err, missing));
}

INSTANTIATE_ON_EACH_DATABASE(Sql);

}  // namespace
}  // namespace scadastore::tooltest
