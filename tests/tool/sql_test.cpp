// sql: free selects come back as the library's text table.
#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

class Sql : public ToolTest {};

TEST_F(Sql, SelectsShowTimeColumnsAsLocalDates) {
  Ok({"ensure", "log", "journal"});
  Ok({"logs", "add", "journal", "--type", "7", "--source", "a,b", "--info", "x",
      "--time", "2024-05-01 08:00:00"});
  // id is left out; logtime is named a time column.
  std::vector<std::vector<std::string>> rows = SplitCsv(
      Ok({"sql", "select id, logtime, logtype from journal", "--time-columns", "logtime",
          "--format", "csv"}));
  ASSERT_EQ(rows.size(), 2u);
  EXPECT_EQ(rows[0], (std::vector<std::string>{"logtime", "logtype"}));
  EXPECT_EQ(rows[1], (std::vector<std::string>{"2024-05-01 08:00:00", "7"}));

  nlohmann::json json = Json({"sql", "select source, logtime from journal"});
  ASSERT_EQ(json.size(), 1u);
  EXPECT_EQ(json[0]["source"], "a,b");
  EXPECT_EQ(json[0]["logtime"], "1714550400");

  EXPECT_EQ(Json({"sql", "select * from journal where id > 5"}), nlohmann::json::array());

  ToolRun bad = Run({"sql", "select * from nothing_here"});
  EXPECT_EQ(bad.status, 1);
  EXPECT_TRUE(Contains(bad.err, "[rcd1503] failed to open table: select * from nothing_here"));
}

}  // namespace
}  // namespace scadastore::tooltest
