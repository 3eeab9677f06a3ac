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

  EXPECT_TRUE(Contains(report, "25 hourly averages"));
  EXPECT_NE(report.find("Free SQL (sgGetRecordBySQL)"), std::string::npos);
  // Its page, beside the database, names every alarm of the day.
  EXPECT_TRUE(Contains(report, "report: " + Path("demo-report.html") + " (32 charts, " +
                                   std::to_string(alarms) + " alarms"));
}

}  // namespace
}  // namespace scadastore::tooltest
