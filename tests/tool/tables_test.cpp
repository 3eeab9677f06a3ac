// Tables as the database describes them, connection failures with their
// reason, and the tool's own conventions (exit codes, nothing left behind).
#include <sys/stat.h>

#include <filesystem>
#include <tuple>

#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

class Tables : public ToolTest {};

TEST_F(Tables, EnsureDescribeDropAndReadOnlyDirectory) {
  EXPECT_EQ(Ok({"ensure", "alarm", "alarms"}), "created alarm table alarms\n");
  EXPECT_EQ(Ok({"ensure", "alarm", "alarms"}), "alarm table alarms already exists\n");
  Ok({"ensure", "log", "logs"});
  Ok({"ensure", "data", "samples", "--columns", "a,b:int,c:text"});
  ToolRun other = Run({"ensure", "data", "samples", "--columns", "a,b"});
  EXPECT_EQ(other.status, 1);
  EXPECT_TRUE(Contains(other.err, "samples exists with other columns: a:float,b:int,c:text"));
  EXPECT_TRUE(Contains(Run({"ensure", "data", "alarms", "--columns", "a"}).err,
                       "alarms exists and is a alarm table"));
  EXPECT_EQ(Run({"ensure", "data", "bad", "--columns", "a:blob"}).status, 1);

  WriteFile("in.csv", "time,a,b,c\n2024-05-01 08:00:00,1.5,1,x\n2024-05-02 08:00:00,2,0,y\n");
  Ok({"records", "import", "samples", Path("in.csv")});
  nlohmann::json described = Json({"describe", "samples"});
  EXPECT_EQ(described["kind"], "data");
  EXPECT_EQ(described["rows"], 2);
  EXPECT_EQ(described["first"], 1714550400);
  EXPECT_EQ(described["last"], 1714636800);
  EXPECT_EQ(described["columns"].size(), 7u);
  EXPECT_EQ(described["columns"][5]["name"], "b");
  EXPECT_EQ(described["columns"][5]["value"], "int");
  EXPECT_TRUE(Contains(described["indexes"].dump(), "(id)"));
  EXPECT_EQ(Ok({"tables", "--format", "csv"}),
            "table,kind,rows,first,last\nalarms,alarm,0,,\nlogs,log,0,,\n"
            "samples,data,2,2024-05-01 08:00:00,2024-05-02 08:00:00\n");

  for (const char* table : {"alarms", "logs", "samples"}) {
    EXPECT_EQ(Ok({"exists", table}), "yes\n");
    EXPECT_EQ(Ok({"drop", table}), std::string("dropped ") + table + "\n");
    EXPECT_EQ(Run({"exists", table}).out, "no\n");
  }

  // A database in a read-only directory is still read.
  std::filesystem::create_directory(Path("ro"));
  std::string database = Path("ro/plant.db");
  EXPECT_EQ(RunBare({"--sqlite", database, "ensure", "alarm", "events"}).status, 0);
  chmod(Path("ro").c_str(), 0500);
  ToolRun exists = RunBare({"--sqlite", database, "exists", "events"});
  chmod(Path("ro").c_str(), 0700);
  EXPECT_EQ(exists.out, "yes\n") << exists.err;
}

TEST_F(Tables, IndexAddsTheMissingTimeIndexes) {
  Ok({"ensure", "alarm", "alarms"});
  Ok({"ensure", "data", "samples", "--columns", "a"});
  Ok({"sql", "--write", "create table other (x integer)"});
  auto timeIndex = [&](const std::string& table, const std::string& column) -> std::string {
    const nlohmann::json described = Json({"describe", table});
    for (const auto& index : described["indexes"]) {
      std::string text = index;
      if (text.ends_with(" (" + column + ")")) return text.substr(0, text.find(' '));
    }
    return "";
  };
  // An alarm table made before new tables got a time index.
  const std::string alarmIndex = timeIndex("alarms", "arisetime");
  ASSERT_TRUE(Contains(alarmIndex, "alarms_time_"));
  Ok({"sql", "--write", "drop index [" + alarmIndex + "]"});
  EXPECT_EQ(timeIndex("alarms", "arisetime"), "");

  const std::string out = Ok({"tables", "index"});
  EXPECT_TRUE(Contains(out, "[1/2] alarms: creating " + alarmIndex + " on arisetime ... done in "));
  EXPECT_TRUE(Contains(out, "[2/2] samples: has " + timeIndex("samples", "time") + " on time\n"));
  EXPECT_EQ(timeIndex("alarms", "arisetime"), alarmIndex);

  ToolRun named = Run({"tables", "index", "other", "nothing_here", "samples"});
  EXPECT_EQ(named.status, 1);
  EXPECT_TRUE(Contains(named.out, "[1/3] other: failed: not an alarm, log or data table\n"));
  EXPECT_TRUE(Contains(named.out, "[2/3] nothing_here: failed: no table nothing_here"));
  EXPECT_TRUE(Contains(named.out, "[3/3] samples: has "));
  EXPECT_TRUE(Contains(named.err, "tables index: 2 of 3 tables failed"));
  EXPECT_TRUE(Contains(RunBare({"tables", "index", "--help"}).out, "Example:\n  scadastore"));
}

// Usage errors exit 2, failures of a command 1; each names its reason.
TEST_F(Tables, UsageErrorsExitTwoAndNothingIsLeftBehind) {
  const std::string x = Path("x.db"), missing = Path("no/such/dir/file");
  EXPECT_EQ(RunBare({}).status, 2);
  EXPECT_EQ(RunBare({"exists", "t"}).status, 2);  // no database
  Ok({"ensure", "data", "t", "--columns", "a"});
  Ok({"ensure", "alarm", "events"});
  const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
      {{"--sqlite", x, "exists"}, 2, ""},  // no table
      {{"--sqlite", x, "exists", "t"}, 1, "no database file " + x},  // not created empty
      {{"--config", "no_such_dsn;;;3", "records", "count", "t"}, 1,
       "[rcd1302] failed to open DSN: no_such_dsn; the database says: [IM002] [unixODBC]"
       "[Driver Manager]Data source name not found"},
      {{"--sqlite", x, "--kind", "9", "exists", "t"}, 2, ""},
      {{"--config", "dsn;user", "exists", "t"}, 2, ""},
      {{"--tz", "Mars/Olympus", "exists", "t"}, 2, "--tz: unknown time zone 'Mars/Olympus'"},
      {{"ensure", "data", "u"}, 2, ""},  // no columns
      {{"stats", "t", "--day", "2024-02-30"}, 2, ""},
      {{"records", "t", "--from", "2024-05-02", "--to", "2024-05-01"}, 2, ""},
      {{"report", "--from", "2024-01-01", "--to", "2025-01-03", "-o", x}, 2,
       "report: at most a year"},
      {{"report", "--day", "2024-01-01", "--unit", "a", "-o", x}, 2, "--unit 'a' is not COLUMN=UNIT"},
      {{"alarms", "events", "--point", "north/pump"}, 2,
       "--point 'north/pump' is not STATION/TAG/TAGTYPE"},
      {{"purge", "--before", "2024-01-01", "--batch", "0", "t"}, 2,
       "purge: --batch must be at least 1"},
      {{"report", "--day", "2024-01-01", "-o", missing}, 1, "report: cannot write " + missing},
      {{"records", "export", "t", "-o", missing}, 1, "export: cannot write " + missing},
      {{"records", "import", "t", missing}, 1, "import: cannot read " + missing},
      {{"drop", "nothing_here"}, 1, "no table nothing_here in SQLite database"},
      {{"describe", "nothing_here"}, 1, "no table nothing_here"},
      {{"alarms", "nothing_here"}, 1, "[alm303] failed to open table"},
      {{"logs", "count", "nothing_here"}, 1, "nothing_here does not exist"},
  };
  for (const auto& [args, status, reason] : cases) {
    std::vector<std::string> line = args;
    if (args[0][0] != '-') line.insert(line.begin(), {"--sqlite", Path("test.db")});
    ToolRun run = RunBare(line);
    EXPECT_EQ(run.status, status) << args[0] << " " << args[1] << ": " << run.err;
    EXPECT_TRUE(Contains(run.err, reason));
  }
  EXPECT_FALSE(std::filesystem::exists(x));

  // A closed pipe ends the tool without leaving its data source files.
  std::string tmp = Path("tmp");
  std::filesystem::create_directory(tmp);
  std::string command = "TMPDIR=" + tmp + " " SCADASTORE_TOOL " --sqlite " + Path("test.db") +
                        " sql 'with recursive n(i) as (select 1 union all select i + 1 from n "
                        "where i < 1000000) select i from n' | head -1";
  EXPECT_EQ(Wait(Start("sh", {"-c", command})).status, 0);
  EXPECT_TRUE(std::filesystem::is_empty(tmp));

  ToolRun help = RunBare({"--help"});
  ASSERT_EQ(help.status, 0);
  // Every command's help carries an example.
  for (const char* command : {"tables", "describe", "ensure", "drop", "exists", "alarms", "logs",
                              "records", "stats", "sql", "monitor", "demo"}) {
    ToolRun run = RunBare({command, "--help"});
    EXPECT_EQ(run.status, 0) << command;
    EXPECT_TRUE(Contains(run.out, "Example:\n  scadastore")) << command;
    EXPECT_TRUE(Contains(help.out, command));
  }
}

}  // namespace
}  // namespace scadastore::tooltest
