// logs: entries written by the tool read back through every output format.
#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

class Logs : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    Ok({"ensure", "log", "journal"});
    EXPECT_EQ(Ok({"logs", "add", "journal", "--type", "2", "--source", "console", "--info",
                  "pump 3, it's started", "--operator", "anna", "--time", "2024-05-01 10:00:00",
                  "--ms", "250"}),
              "1\n");
    EXPECT_EQ(Ok({"log", "journal", "--type", "1", "--source", "system", "--info",
                  "shift change", "--time", "1714561200"}),
              "2\n");
  }
};

TEST_F(Logs, FormatsParseBackToTheStoredEntries) {
  nlohmann::json entries = Json({"logs", "journal"});
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0]["id"], 1);
  EXPECT_EQ(entries[0]["time"], 1714557600);
  EXPECT_EQ(entries[0]["ms"], 250);
  EXPECT_EQ(entries[0]["type"], 2);
  EXPECT_EQ(entries[0]["info"], "pump 3, it's started");
  EXPECT_EQ(entries[0]["operator"], "anna");
  EXPECT_EQ(entries[1]["source"], "system");

  std::string csv = Ok({"logs", "journal", "--format", "csv"});
  EXPECT_TRUE(Contains(csv, "id,time,ms,type,source,info,operator"));
  EXPECT_TRUE(Contains(csv, "1,2024-05-01 10:00:00,250,2,console,\"pump 3, it's started\",anna"));

  std::string table = Ok({"logs", "journal", "--format", "table"});
  EXPECT_TRUE(Contains(table, "2024-05-01 11:00:00"));
  EXPECT_TRUE(Contains(table, "shift change"));
}

TEST_F(Logs, TimeRangeAndCount) {
  nlohmann::json first = Json({"logs", "journal", "--from", "2024-05-01 09:00", "--to",
                               "2024-05-01 10:59:59"});
  ASSERT_EQ(first.size(), 1u);
  EXPECT_EQ(first[0]["id"], 1);
  EXPECT_EQ(Ok({"logs", "count", "journal"}), "2\n");
  EXPECT_EQ(Ok({"exists", "journal"}), "yes\n");

  ToolRun missing = Run({"logs", "count", "nothing_here"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_TRUE(Contains(missing.err, "nothing_here does not exist"));
  EXPECT_EQ(Run({"logs", "journal", "--from", "2024-05-01 11:00", "--to", "2024-05-01"}).status, 2);
}

}  // namespace
}  // namespace scadastore::tooltest
