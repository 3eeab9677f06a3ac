// report: the page's parts from their pure functions, then the tool's page of
// the day the clocks go back in Berlin (25 local hours), shown by Chromium.
#include <cmath>
#include <filesystem>

#include "tool_runner.h"
#include "tools/cli/report/report_html.h"

namespace scadastore::tooltest {
namespace {

using namespace scadastore::cli;

constexpr uint32_t kDayStart = 1729980000;  // 2024-10-27 00:00 CEST

size_t Occurrences(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// Points of every polyline or polygon of `kind` ("average", "band").
size_t Points(const std::string& html, const std::string& kind) {
  const std::string head = "class=\"" + kind + "\" points=\"";
  size_t points = 0;
  for (size_t at = html.find(head); at != std::string::npos; at = html.find(head, at + 1)) {
    size_t start = at + head.size();
    points += Occurrences(html.substr(start, html.find('"', start) - start), ",");
  }
  return points;
}

class ReportHtml : public ::testing::Test {
 protected:
  void SetUp() override { UseTimeZone("Europe/Berlin"); }
  void TearDown() override { UseTimeZone("UTC"); }
};

// Hours labelled in local time, the repeated one twice; the line and the
// band break where two hours have no samples; every text is escaped.
TEST_F(ReportHtml, ChartsBreakWithoutSamplesAndEveryTextIsEscaped) {
  Trend trend{"temp", "C", {}};
  for (const Slot& hour : LocalHours(ParseDate("2024-10-27", "day"))) {
    uint32_t index = (hour.start - kDayStart) / 3600;
    double value = index == 10 || index == 11 ? NAN : index % 7;
    trend.hours.push_back({hour, value - 1, value + 1, value});
  }
  const std::string chart = TrendChart(trend);
  EXPECT_EQ(Occurrences(chart, "class=\"average\""), 2u);
  EXPECT_EQ(Points(chart, "average"), 23u);
  EXPECT_EQ(Points(chart, "band"), 46u);
  std::string labels;
  for (size_t at = chart.find("class=\"hour\""); at != std::string::npos;
       at = chart.find("class=\"hour\"", at + 1))
    labels += chart.substr(chart.find('>', at) + 1, 2) + " ";
  EXPECT_EQ(labels, "00 01 02 02 03 04 05 06 07 08 09 10 11 12 13 14 15 16 17 18 19 20 21 22 23 ");

  // Every text escaped; an open alarm outlined; rows beyond the limit noted.
  const std::string timeline = AlarmTimeline(
      {{"north", "t<1>", "<b>\"hot\" & 'x'</b>", 1, kDayStart - 3600, kDayStart + 5400},
       {"south", "valve", "", 3, kDayStart + 72000, 0},
       {"west", "door", "", 2, kDayStart, kDayStart + 60}},
      LocalHours(ParseDate("2024-10-27", "day")), 2);
  EXPECT_EQ(Occurrences(timeline, "<rect class=\"alarm "), 2u);
  EXPECT_TRUE(Contains(timeline, "<rect class=\"alarm level3 open\""));
  EXPECT_TRUE(Contains(timeline, "north/t&lt;1&gt;</text>"));
  EXPECT_TRUE(Contains(timeline, "&lt;b&gt;&quot;hot&quot; &amp; &#39;x&#39;&lt;/b&gt;"));
  EXPECT_TRUE(Contains(timeline, "1 more points with alarms are not drawn."));
  const std::string table = HtmlTable({{"info", "n"}, {{"<script>&", 2}}}, 1);
  EXPECT_TRUE(Contains(table, "<tr><td>&lt;script&gt;&amp;</td><td class=\"num\">2</td></tr>"));
  EXPECT_TRUE(Contains(table, "1 more row is not shown."));
  EXPECT_EQ(HtmlPage("a<b", "").find("a<b"), std::string::npos);
}

class Report : public ToolTest {};

TEST_F(Report, PageOfTheDayInChromium) {
  setenv("TZ", "Europe/Berlin", 1);
  // Samples every 20 minutes, none in the 11th and 12th hour: 23 hours with figures.
  std::string csv = "time,temp,flow\n";
  for (uint32_t time = kDayStart; time < kDayStart + 25 * 3600; time += 1200)
    if (uint32_t hour = (time - kDayStart) / 3600; hour != 10 && hour != 11)
      csv += std::to_string(time) + "," + std::to_string(20 + hour) + ",100\n";
  WriteFile("samples.csv", csv);
  Ok({"ensure", "data", "samples", "--columns", "temp,flow"});
  Ok({"records", "import", "samples", Path("samples.csv")});
  // Raised the day before and recovered during it; one raised after it.
  Ok({"ensure", "alarm", "events"});
  for (const char* time : {"2024-10-26 23:00", "2024-10-27 05:00", "2024-10-28 01:00"})
    Ok({"alarms", "add", "events", "--station", "s", "--tag", "<pump>", "--time", time});
  Ok({"alarms", "recover", "events", "1", "--time", "2024-10-27 01:30"});
  Ok({"ensure", "log", "journal"});
  for (const char* time : {"2024-10-27 03:00", "2024-10-27 04:00"})
    Ok({"log", "journal", "--type", "1", "--source", "s", "--info", "<script>", "--time", time});

  EXPECT_EQ(Ok({"report", "--day", "2024-10-27", "--unit", "temp=C", "--log-rows", "1", "-o",
                Path("report.html")}),
            "report: " + Path("report.html") + " (2 charts, 2 alarms, 2 log entries)\n");
  const std::string page = ReadFile(Path("report.html"));
  EXPECT_EQ(Points(page, "average"), 2 * 23u);
  EXPECT_TRUE(Contains(page, "temp [C]</h3>"));
  EXPECT_TRUE(Contains(page, "s/&lt;pump&gt;</text>"));
  EXPECT_EQ(page.find("<script"), std::string::npos);
  EXPECT_TRUE(Contains(page, "1 more row is not shown."));
  // The kpi figures are those of the day: one alarm raised in it.
  EXPECT_TRUE(Contains(page, "<tr><td>(all)</td><td class=\"num\">1</td>"));

  if (Wait(Start("sh", {"-c", "command -v chromium"})).status != 0)
    GTEST_SKIP() << "chromium is not installed (scripts/test installs it)";
  std::filesystem::create_directories(SCADASTORE_ARTIFACTS);
  const std::string screenshot = SCADASTORE_ARTIFACTS "/report.png";
  std::filesystem::remove(screenshot);
  ToolRun chromium = Wait(Start("timeout", {"120", "chromium", "--headless", "--no-sandbox",
                                            "--disable-gpu", "--user-data-dir=" + Path("chromium"),
                                            "--window-size=1200,2000", "--screenshot=" + screenshot,
                                            "--dump-dom", "file://" + Path("report.html")}));
  ASSERT_EQ(chromium.status, 0) << chromium.err;
  EXPECT_GT(std::filesystem::file_size(screenshot), 10000u);
  EXPECT_EQ(Occurrences(chromium.out, "<svg class=\"trend\""), 2u);
  EXPECT_EQ(Points(chromium.out, "average"), 2 * 23u);
}

}  // namespace
}  // namespace scadastore::tooltest
