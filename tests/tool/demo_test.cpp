// demo: the day it reports is the day the store holds.
#include <regex>

#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

class Demo : public ToolTest {};

int Count(const std::string& text, const std::string& pattern) {
  std::smatch match;
  if (!std::regex_search(text, match, std::regex(pattern))) {
    ADD_FAILURE() << "no '" << pattern << "' in the report";
    return -1;
  }
  return std::stoi(match[1]);
}

// Rows of the report's table under a heading, up to the next blank line.
int RowsUnder(const std::string& report, const std::string& heading) {
  size_t start = report.find(heading);
  if (start == std::string::npos) return -1;
  size_t end = report.find("\n\n", start);
  std::string section = report.substr(start, end - start);
  return static_cast<int>(std::count(section.begin(), section.end(), '\n')) - 2;
}

TEST_F(Demo, ReportedCountsMatchTheStore) {
  // The day the clocks go back: the report has 25 local hours.
  ToolRun run = Run({"--tz", "Europe/Berlin", "demo", "--day", "2024-10-27"});
  ASSERT_EQ(run.status, 0) << run.err;
  const std::string& report = run.out;
  EXPECT_EQ(Count(report, R"(plant +(\d+) samples of 32 values)"), 86400);
  EXPECT_EQ(Ok({"records", "count", "plant"}), "86400\n");
  int alarms = Count(report, R"(plant_alarms +(\d+) alarms)");
  EXPECT_GT(alarms, 0);
  EXPECT_EQ(Ok({"alarms", "count", "plant_alarms"}), std::to_string(alarms) + "\n");
  nlohmann::json confirmed =
      Json({"sql", "select count(*) as n from plant_alarms where status <> 0"});
  EXPECT_EQ(confirmed[0]["n"], Count(report, R"(\((\d+) confirmed)"));
  EXPECT_EQ(Ok({"logs", "count", "plant_log"}),
            std::to_string(Count(report, R"(plant_log +(\d+) log entries)")) + "\n");

  // The report's alarm section is the tool's query of the same alarms.
  nlohmann::json north = Json({"alarms", "plant_alarms", "--station", "north", "--level", "2"});
  EXPECT_EQ(RowsUnder(report, "Alarms of level >= 2 at station north"),
            static_cast<int>(north.size()));
  EXPECT_EQ(RowsUnder(report, "Hourly averages of"), 32);
  EXPECT_TRUE(Contains(report, "25 hourly averages"));
  EXPECT_NE(report.find("Free SQL (sgGetRecordBySQL)"), std::string::npos);
  // Its page, beside the database, names every alarm of the day.
  EXPECT_TRUE(Contains(report, "report: " + Path("demo-report.html") + " (32 charts, " +
                                   std::to_string(alarms) + " alarms"));
}

}  // namespace
}  // namespace scadastore::tooltest
