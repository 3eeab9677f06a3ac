// records: import, read back, export and count through the tool, and the
// statistics over what was imported.
#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

const std::string kColumns = "temp,pump:int,mode:text";

class Records : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    Ok({"ensure", "data", "samples", "--columns", kColumns});
  }
  void Import(const std::string& csv, const std::vector<std::string>& options = {}) {
    WriteFile("in.csv", csv);
    std::vector<std::string> args = options;
    args.insert(args.end(), {"records", "import", "samples", Path("in.csv"), "--columns", kColumns});
    Ok(args);
  }
};

// Kind 3 stores in batches, kind 1 one record per call: both must store
// exactly the file.
TEST_F(Records, ImportedRowsReadBackThroughEveryFormat) {
  for (const char* kind : {"3", "1"}) {
    SCOPED_TRACE(kind);
    Ok({"drop", "samples"});
    Ok({"ensure", "data", "samples", "--columns", kColumns});
    Import("time,ms,temp,pump,mode\n"
           "2024-05-01 08:00:00,0,21.5,1,auto\n"
           "\r\n"
           "1714550401,500,-0.125,0,\"it's, \"\"manual\"\"\"\r\n"
           "2024-05-01T08:00:02,0,1e3,7,\n",
           {"--kind", kind});
    nlohmann::json rows = Json({"records", "samples", "--columns", kColumns});
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0]["time"], 1714550400);
    EXPECT_EQ(rows[0]["temp"], 21.5);
    EXPECT_EQ(rows[0]["mode"], "auto");
    EXPECT_EQ(rows[1]["ms"], 500);
    EXPECT_EQ(rows[1]["temp"], -0.125);
    EXPECT_EQ(rows[1]["pump"], 0);
    EXPECT_EQ(rows[1]["mode"], "it's, \"manual\"");
    EXPECT_EQ(rows[2]["temp"], 1000.0);
    EXPECT_EQ(rows[2]["pump"], 1);  // integers are stored as 0 or 1
    EXPECT_EQ(rows[2]["mode"], "");
  }

  std::string table = Ok({"records", "samples", "--columns", kColumns, "--format", "table"});
  EXPECT_TRUE(Contains(table, "2024-05-01 08:00:01  500       0  -0.125     0"));

  // An export imports as it is.
  std::string exported = Ok({"records", "export", "samples", "--columns", kColumns, "--epoch"});
  EXPECT_TRUE(Contains(exported, "time,ms,temp,pump,mode\n1714550400,0,21.5,1,auto\n"));
  Import(exported);
  EXPECT_EQ(Ok({"records", "count", "samples"}), "6\n");
  nlohmann::json again = Json({"records", "samples", "--columns", kColumns, "--index", "5"});
  ASSERT_EQ(again.size(), 1u);
  EXPECT_EQ(again[0]["mode"], "it's, \"manual\"");
  EXPECT_EQ(again[0]["id"], 5);
}

TEST_F(Records, MalformedLineStopsImportBeforeAnythingIsStored) {
  WriteFile("bad.csv",
            "time,temp,pump,mode\n2024-05-01 08:00:00,1,0,a\n2024-05-01 08:00:01,x,0,b\n"
            "2024-05-01 08:00:02,3,0,c\n");
  ToolRun run = Run({"records", "import", "samples", Path("bad.csv"), "--columns", kColumns});
  EXPECT_EQ(run.status, 1);
  EXPECT_TRUE(Contains(run.err, "bad.csv:3: column temp: 'x' is not a number"));
  EXPECT_EQ(Ok({"records", "count", "samples"}), "0\n");

  WriteFile("short.csv", "time,temp,pump,mode\n1714550400,1,0,a\n1714550401,2,0\n");
  run = Run({"records", "import", "samples", Path("short.csv"), "--columns", kColumns});
  EXPECT_TRUE(Contains(run.err, "short.csv:3: 3 fields where the header has 4"));
  WriteFile("header.csv", "time,temp,mode\n1714550400,1,a\n");
  run = Run({"records", "import", "samples", Path("header.csv"), "--columns", kColumns});
  EXPECT_TRUE(Contains(run.err, "header.csv:1: column pump is missing"));
  EXPECT_EQ(Ok({"records", "count", "samples"}), "0\n");
}

TEST_F(Records, SelectionsAndStatistics) {
  std::string csv = "time,temp,pump,mode\n";
  // Two hours of 10-minute samples: temp rises by 1 each sample.
  for (int i = 0; i < 12; ++i)
    csv += std::to_string(1714521600 + 600 * i) + "," + std::to_string(i) + ",0,m\n";
  Import(csv);
  auto times = [&](std::vector<std::string> args) {
    args.insert(args.begin(), {"records", "samples", "--columns", kColumns});
    std::vector<int64_t> result;
    for (const auto& row : Json(args)) result.push_back(row["time"]);
    return result;
  };
  EXPECT_EQ(times({"--from", "2024-05-01 00:50", "--to", "2024-05-01 01:10"}),
            (std::vector<int64_t>{1714524600, 1714525200, 1714525800}));
  EXPECT_EQ(times({"--minute", "2024-05-01 00:10:00"}), (std::vector<int64_t>{1714522200}));
  EXPECT_EQ(times({"--index", "12"}), (std::vector<int64_t>{1714528200}));

  nlohmann::json max = Json({"stats", "samples", "--columns", kColumns, "--from",
                             "2024-05-01 00:00", "--to", "2024-05-01 01:00", "--stat", "max"});
  ASSERT_EQ(max.size(), 1u);
  EXPECT_EQ(max[0]["temp"], 5.0);
  nlohmann::json day = Json({"stats", "samples", "--columns", kColumns, "--day", "2024-05-01"});
  ASSERT_EQ(day.size(), 24u);
  EXPECT_EQ(day[0]["temp"], 2.5);
  EXPECT_EQ(day[1]["temp"], 8.5);
  EXPECT_EQ(day[1]["time"], 1714525200);
  EXPECT_TRUE(day[2]["temp"].is_null());  // an hour without samples
  nlohmann::json month = Json({"stats", "samples", "--columns", kColumns, "--month", "2024-05",
                               "--stat", "sum"});
  ASSERT_EQ(month.size(), 31u);
  EXPECT_EQ(month[0]["temp"], 66.0);
  nlohmann::json year = Json({"stats", "samples", "--columns", kColumns, "--year", "2024"});
  ASSERT_EQ(year.size(), 12u);
  EXPECT_EQ(year[4]["time"], 1714521600);  // May starts 121 days in (leap year)
  EXPECT_EQ(year[4]["temp"], 5.5);
}

}  // namespace
}  // namespace scadastore::tooltest
