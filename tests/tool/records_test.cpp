// records: import, read back, export, trend and count through the tool, on
// SQLite, PostgreSQL and MariaDB.
#include <signal.h>

#include <cfloat>
#include <chrono>
#include <cmath>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <thread>

#include <fmt/format.h>

#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

const std::string kColumns = "temp,pump:int,mode:text";

class Records : public EachDatabase {
 protected:
  void SetUp() override {
    EachDatabase::SetUp();
    if (IsSkipped()) return;
    FreshTable("data", "tool_samples", kColumns);
  }
  void Import(const std::string& csv, const std::vector<std::string>& options = {}) {
    WriteFile("in.csv", csv);
    std::vector<std::string> args = options;
    args.insert(args.end(), {"records", "import", "tool_samples", Path("in.csv")});
    Ok(args);
  }
  std::string Count() { return Ok({"records", "count", "tool_samples"}); }
  bool sqlite() const { return database() == Database::Sqlite; }
};

// Kind 3 stores in batches, kind 1 one record per call; empty fields are
// NULL; columns are chosen and ordered by name and checked.
TEST_P(Records, ImportedRowsReadBackByColumnName) {
  for (const char* kind : {"3", "1"}) {
    if (!sqlite() && kind[0] == '1') break;  // the kinds are SQLite's
    SCOPED_TRACE(kind);
    FreshTable("data", "tool_samples", kColumns);
    Import("time,ms,temp,pump,mode\n"
           "2024-05-01 08:00:00,0,21.5,1,auto\n"
           "\r\n"
           "1714550401,500,-0.125,0,\"it's, \"\"manual\"\"\"\r\n"
           "2024-05-01T08:00:02,0,,1,\n",
           sqlite() ? std::vector<std::string>{"--kind", kind} : std::vector<std::string>{});
    nlohmann::json rows = Json({"records", "tool_samples"});
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0], nlohmann::json::parse(R"({"id":1,"time":1714550400,"ms":0,"modify":0,
                                                 "temp":21.5,"pump":1,"mode":"auto"})"));
    EXPECT_EQ(rows[1]["mode"], "it's, \"manual\"");
    EXPECT_EQ(rows[2]["temp"], nullptr);
    EXPECT_EQ(rows[2]["mode"], nullptr);
  }
  // Swapped names swap the columns, not the labels.
  nlohmann::json chosen = Json({"records", "tool_samples", "--columns", "pump,temp", "--index", "2"});
  EXPECT_EQ(chosen.dump(), R"([{"pump":0,"temp":-0.125}])");
  EXPECT_EQ(Ok({"records", "tool_samples", "--columns", "mode,temp", "--format", "csv"}),
            "mode,temp\nauto,21.5\n\"it's, \"\"manual\"\"\",-0.125\n,\n");
  WriteFile("empty.csv", "time,temp,pump,mode\n1714550400,,,\n");
  EXPECT_TRUE(Contains(Run({"records", "import", "tool_samples", Path("empty.csv")}).err,
                       "empty.csv:2: every value is empty"));
  for (std::vector<std::string> args : {std::vector<std::string>{"records"},
                                        {"stats", "--year", "2024"},
                                        {"records", "export"}}) {
    args.insert(args.end(), {"tool_samples", "--columns", "temp,nosuch"});
    ToolRun wrong = Run(args);
    EXPECT_EQ(wrong.status, 2) << args[0];
    EXPECT_TRUE(Contains(wrong.err, "tool_samples has no column 'nosuch' (its columns: "));
  }
  ToolRun beyond = Run({"records", "tool_samples", "--index", "99999"});
  EXPECT_EQ(beyond.status, 1);
  EXPECT_TRUE(Contains(beyond.err, "no record 99999; tool_samples has 3"));
  EXPECT_TRUE(beyond.out.empty());
}

// Each bad line is named before anything is stored.
TEST_P(Records, BadLinesStopTheImportBeforeAnythingIsStored) {
  const std::string head = "time,temp,pump,mode\n2024-05-01 08:00:00,1,0,a\n";
  const std::pair<std::string, std::string> cases[] = {
      {"2024-05-01 08:00:01,x,0,b\n", ":3: column temp: 'x' is not a number"},
      {"2024-05-01 08:00:01,1,7,b\n", ":3: column pump: '7' is not 0 or 1"},
      {"1969-12-31 23:59:59,1,0,b\n", ":3: time: '1969-12-31 23:59:59' is not a time from 1970"},
      {"1714550401,2,0\n", ":3: 3 fields where the header has 4"},
      {"2024-03-31 02:30:00,1,0,b\n", ":3: time: '2024-03-31 02:30:00' does not exist in Europe/Berlin"},
      {"2024-10-27 02:30:00,1,0,b\n", ":3: time: '2024-10-27 02:30:00' happens twice in Europe/Berlin"},
  };
  for (const auto& [line, message] : cases) {
    WriteFile("bad.csv", head + line + "1714550402,3,0,c\n");
    ToolRun run = Run({"--tz", "Europe/Berlin", "records", "import", "tool_samples", Path("bad.csv")});
    EXPECT_EQ(run.status, 1) << line;
    EXPECT_TRUE(Contains(run.err, "bad.csv" + message));
  }
  WriteFile("header.csv", "time,temp,mode\n1714550400,1,a\n");
  EXPECT_TRUE(Contains(Run({"records", "import", "tool_samples", Path("header.csv")}).err,
                       "header.csv:1: column pump is missing"));
  // A row that the database refuses stops the store with the database's reason.
  Ok({"sql", "--write",
      !sqlite() ? "alter table tool_samples add constraint cool check (temp < 100)"
                : "create trigger cool before insert on tool_samples when new.temp >= 100 "
                  "begin select raise(abort, 'too hot'); end"});
  WriteFile("hot.csv", head + "2024-05-01 08:00:01,150,0,b\n");
  ToolRun hot = Run({"records", "import", "tool_samples", Path("hot.csv")});
  EXPECT_EQ(hot.status, 1);
  EXPECT_TRUE(Contains(hot.err, "stopped by the database: [rcd"));
  EXPECT_TRUE(Contains(hot.err, sqlite() ? "too hot" : "cool"));
  EXPECT_EQ(Count(), "0\n");
}

// Tables made under the old rules (signed 32-bit integers; on MariaDB
// single-precision floats and texts compared loosely) keep their rows through
// the upgrade and then store every value; export and import give back every
// bit of every float.
TEST_P(Records, UpgradedTablesThenExportAndImportKeepEveryBit) {
  const std::string options =
      GetParam() == Database::Mariadb ? " CHARSET=utf8 COLLATE=utf8_general_ci" : "";
  Ok({"sql", "--write", "drop table tool_samples"});
  Run({"drop", "tool_old_log"});
  Ok({"sql", "--write",
      "create table tool_samples (id integer NOT NULL PRIMARY KEY, time integer, ms integer, "
      "modify integer, temp float, pump integer, mode varchar(255))" + options});
  Ok({"sql", "--write",
      "create table tool_old_log (id integer NOT NULL PRIMARY KEY, logtime integer, millisecond "
      "integer, logtype integer, source varchar(64), loginfo varchar(250), operator varchar(32), "
      "monitor varchar(32), logverify varchar(64), ip integer, ackinfo varchar(250), batch "
      "varchar(64), rsvd varchar(128))" + options});
  Import("time,temp,pump,mode\n2024-05-01 08:00:00,0.5,1,kept\n");
  const std::string needed = Json({"describe", "tool_samples"})["upgrade"];
  EXPECT_EQ(needed.empty(), sqlite()) << needed;
  if (!sqlite()) {
    EXPECT_TRUE(Contains(Ok({"tables", "upgrade", "--dry-run", "tool_samples"}),
                         "[1/1] tool_samples: would run " + needed + "\n"));
    const std::string upgraded = Ok({"tables", "upgrade", "tool_samples", "tool_old_log"});
    EXPECT_TRUE(Contains(upgraded, "tool_samples: altering ... done in "));
    EXPECT_TRUE(Contains(upgraded, "tool_old_log: altering ... done in "));
  }
  EXPECT_EQ(Ok({"tables", "upgrade", "tool_samples"}),
            "[1/1] tool_samples: up to date\nevery table follows the current rules\n");
  EXPECT_EQ(Run({"exists", "db"}).out, "no\n");  // MariaDB's own schema has one
  EXPECT_EQ(Ok({"records", "tool_samples", "--format", "csv", "--columns", "temp,mode"}),
            "temp,mode\n0.5,kept\n");
  EXPECT_EQ(Ok({"sql", "select count(*) as n from tool_samples where mode = 'KEPT'", "--format",
                "csv"}),
            "n\n0\n");
  Ok({"logs", "add", "tool_old_log", "--type", "4294967295", "--source", "s", "--info", "i",
      "--ip", "3232235786", "--time", "4294967295"});
  EXPECT_EQ(Ok({"logs", "tool_old_log", "--format", "csv", "--epoch"}),
            "id,time,ms,type,source,info,operator,monitor,verify,ip,ackinfo,batch\n"
            "1,4294967295,0,4294967295,s,i,,,,3232235786,,\n");
  Ok({"drop", "tool_old_log"});

  const double values[] = {0.1 + 0.2, DBL_MAX, -DBL_MIN, 4.9406564584124654e-324, 1.0 / 3,
                           1e23, -123456.789012345678, 0.0, 16777217, 1525.0164794921875};
  std::string csv = "time,temp,pump,mode\n";
  for (size_t i = 0; i < std::size(values); ++i)
    csv += fmt::format("{},{:.17g},1,v\n", 4294967295 - i, values[i]);  // times past 2038
  Import(csv);
  Ok({"records", "export", "tool_samples", "--epoch", "-o", Path("out.csv")});
  FreshTable("data", "tool_samples", kColumns);
  Ok({"records", "import", "tool_samples", Path("out.csv")});
  nlohmann::json rows = Json({"records", "tool_samples", "--columns", "temp"});
  ASSERT_EQ(rows.size(), std::size(values) + 1);
  for (size_t i = 0; i < std::size(values); ++i)
    EXPECT_EQ(rows[i + 1]["temp"].get<double>(), values[i]) << i;
  std::string again = Ok({"records", "export", "tool_samples", "--epoch"});
  EXPECT_TRUE(Contains(again, "4294967295,0,0.30000000000000004,"));
  EXPECT_TRUE(Contains(again, "1.7976931348623157e+308,"));
  EXPECT_TRUE(Contains(Ok({"sql", "select temp from tool_samples"}), "16777217"));
}

// --points N: at most N points, the range's first and last samples and each
// bucket's minimum and maximum among them, every one a stored sample.
TEST_P(Records, TrendKeepsTheEdgesAndEachBucketsExtremes) {
  auto value = [](long i) { return (i * 7919 + 300) % 1009 * 0.25 - 100; };  // edges not extreme
  std::string csv = "time,temp,pump,mode\n";
  for (long i = 0; i < 1000; ++i) csv += fmt::format("{},{},1,m\n", 1714550400 + i, value(i));
  Import(csv);
  nlohmann::json rows = Json({"records", "tool_samples", "--columns", "time,temp", "--from",
                              "1714550400", "--to", "1714551400", "--points", "40"});
  ASSERT_FALSE(rows.empty());
  EXPECT_EQ(rows.front()["time"], 1714550400);
  EXPECT_EQ(rows.back()["time"], 1714551399);
  std::map<long, std::set<double>> shown;  // of each 100-second bucket
  for (const auto& row : rows) {
    long i = row["time"].get<long>() - 1714550400;
    ASSERT_FALSE(row["temp"].is_null()) << i;
    EXPECT_EQ(row["temp"].get<double>(), value(i)) << i;
    shown[i / 100].insert(value(i));
  }
  EXPECT_LE(rows.size(), 40u);
  for (long bucket = 0; bucket < 10; ++bucket) {
    std::vector<double> all;
    for (long i = bucket * 100; i < bucket * 100 + 100; ++i) all.push_back(value(i));
    EXPECT_TRUE(shown[bucket].count(*std::min_element(all.begin(), all.end()))) << bucket;
    EXPECT_TRUE(shown[bucket].count(*std::max_element(all.begin(), all.end()))) << bucket;
  }
}

// Ctrl-C half-way: the tool says how many records are stored; a repeat
// is refused and a resume stores the rest, each row exactly once.
TEST_P(Records, InterruptedImportResumesWithoutDuplicates) {
  const int rows = SCADASTORE_SANITIZED ? 20000 : 200000;
  {
    std::ofstream csv(Path("big.csv"));
    csv << "time,temp,pump,mode\n";
    for (int i = 0; i < rows; ++i) csv << 1700000000 + i << ',' << i << ",1,m\n";
  }
  pid_t pid = StartTool({"records", "import", "tool_samples", Path("big.csv")}, "import");
  for (int wait = 0; wait < 600 && Count() == "0\n"; ++wait)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  kill(pid, SIGINT);
  ToolRun stopped = Wait(pid, "import");
  ASSERT_EQ(stopped.status, 130) << stopped.err;
  std::smatch match;
  ASSERT_TRUE(std::regex_search(stopped.err, match, std::regex(R"(--skip (\d+))"))) << stopped.err;
  std::string stored = match[1];
  EXPECT_TRUE(Contains(stopped.err, "interrupted. The first " + stored + " records of the file"))
      << stopped.err;
  EXPECT_EQ(Count(), stored + "\n");
  EXPECT_LT(std::stoi(stored), rows);

  ToolRun repeated = Run({"records", "import", "tool_samples", Path("big.csv")});
  EXPECT_EQ(repeated.status, 1);
  EXPECT_TRUE(Contains(repeated.err, "already holds " + stored + " records"));
  Ok({"records", "import", "tool_samples", Path("big.csv"), "--skip", stored});
  EXPECT_EQ(Ok({"sql", "select count(*) as n, count(distinct time) as d from tool_samples",
                "--format", "csv"}),
            "n,d\n" + std::to_string(rows) + "," + std::to_string(rows) + "\n");
}

INSTANTIATE_ON_EACH_DATABASE(Records);

}  // namespace
}  // namespace scadastore::tooltest
