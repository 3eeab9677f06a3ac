// Connection, table management and the tool's own conventions.
#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

class Tables : public ToolTest {};

TEST_F(Tables, EnsureExistsAndDrop) {
  for (const char* kind : {"alarm", "log"}) Ok({"ensure", kind, std::string(kind) + "s"});
  Ok({"ensure", "data", "samples", "--columns", "a,b:int,c:text"});
  for (const char* table : {"alarms", "logs", "samples"}) {
    EXPECT_EQ(Ok({"exists", table}), "yes\n");
    Ok({"drop", table});
    EXPECT_EQ(Run({"exists", table}).out, "no\n");
  }
  EXPECT_EQ(Run({"ensure", "data", "bad", "--columns", "a:blob"}).status, 1);

  ToolRun missing = Run({"exists", "nothing_here"});
  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.out, "no\n");

  ToolRun drop = Run({"drop", "nothing_here"});
  EXPECT_EQ(drop.status, 1);
  EXPECT_TRUE(Contains(drop.err, "no such table: nothing_here"));
}

TEST_F(Tables, WrongDataSourceFailsWithNonZeroExit) {
  ToolRun run = RunBare({"--config", "no_such_dsn;;;3", "exists", "t"});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(Contains(run.err, "[rcd1302] failed to open DSN: no_such_dsn"));
  EXPECT_TRUE(run.out.empty());
}

TEST_F(Tables, UsageErrorsAndHelp) {
  EXPECT_EQ(RunBare({}).status, 2);
  EXPECT_EQ(RunBare({"--sqlite", Path("x.db"), "exists"}).status, 2);  // no table
  EXPECT_EQ(RunBare({"--sqlite", Path("x.db"), "--kind", "9", "exists", "t"}).status, 2);
  ToolRun help = RunBare({"--help"});
  ASSERT_EQ(help.status, 0);
  // Every command's help carries an example.
  for (const char* command : {"ensure", "drop", "exists", "alarms", "logs", "records", "stats", "sql",
                              "monitor", "demo"}) {
    ToolRun run = RunBare({command, "--help"});
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_TRUE(Contains(run.out, "Example:\n  scadastore")) << command;
    EXPECT_TRUE(Contains(help.out, command));
  }
}

}  // namespace
}  // namespace scadastore::tooltest
