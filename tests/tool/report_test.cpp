// report: the page as headless Chromium renders it, on the day the clocks
// go back in Berlin (25 local hours).
#include <chrono>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

constexpr uint32_t kDayStart = 1729980000;  // 2024-10-27 00:00 CEST
constexpr uint32_t kDayEnd = 1730070000;    // 2024-10-28 00:00 CET

std::vector<std::string> Matches(const std::string& text, const std::string& pattern) {
  std::vector<std::string> found;
  std::regex expression(pattern);
  for (std::sregex_iterator it(text.begin(), text.end(), expression), end; it != end; ++it)
    found.push_back((*it)[1]);
  return found;
}

size_t PointCount(const std::vector<std::string>& lists) {
  size_t points = 0;
  for (const std::string& list : lists) points += Matches(list, R"(([\d.-]+,[\d.-]+))").size();
  return points;
}

std::string Unescape(std::string text) {
  for (auto [entity, plain] : {std::pair{"&lt;", "<"}, {"&gt;", ">"}, {"&quot;", "\""},
                               {"&amp;", "&"}})
    for (size_t at; (at = text.find(entity)) != std::string::npos;)
      text.replace(at, std::strlen(entity), plain);
  return text;
}

class Report : public ToolTest {
 protected:
  void SetUp() override {
    ToolTest::SetUp();
    setenv("TZ", "Europe/Berlin", 1);
    // Samples every 20 minutes, none in the 11th and 12th hour: 23 hours with figures.
    Ok({"ensure", "data", "samples", "--columns", "temp,flow"});
    std::string csv = "time,temp,flow\n";
    for (uint32_t time = kDayStart; time < kDayEnd; time += 1200)
      if (uint32_t hour = (time - kDayStart) / 3600; hour != 10 && hour != 11)
        csv += std::to_string(time) + "," + std::to_string(20 + hour) + ",100\n";
    WriteFile("samples.csv", csv);
    Ok({"records", "import", "samples", Path("samples.csv")});

    Ok({"ensure", "alarm", "events"});
    // Raised the day before, recovered at 01:30; a chattering point; one still open.
    Alarm({"--station", "north", "--tag", "t<1>", "--level", "1", "--description",
           "<b>\"hot\" & 'x'</b>", "--time", "2024-10-26 23:00"});
    Ok({"alarms", "recover", "events", "1", "--time", "2024-10-27 01:30"});
    for (const char* time : {"2024-10-27 05:00:00", "2024-10-27 05:00:20", "2024-10-27 05:00:40"})
      Alarm({"--station", "south", "--tag", "pump", "--level", "2", "--time", time});
    Alarm({"--station", "south", "--tag", "valve", "--level", "3", "--time", "2024-10-27 20:00"});

    Ok({"ensure", "log", "journal"});
    for (const char* time : {"2024-10-27 03:00", "2024-10-27 04:00"})
      Ok({"log", "journal", "--type", "1", "--source", "console", "--info",
          "<script>alert(1)</script> & \"q\"", "--time", time});
  }
  void Alarm(std::vector<std::string> args) {
    args.insert(args.begin(), {"alarms", "add", "events"});
    Ok(args);
  }
};

TEST_F(Report, ChromiumShowsTheChartsAlarmsFiguresAndLog) {
  if (std::system("command -v chromium >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "chromium is not installed (scripts/test installs it)";
  Ok({"report", "--day", "2024-10-27", "--unit", "temp=C", "--log-rows", "1", "-o",
      Path("report.html")});

  std::filesystem::create_directories(SCADASTORE_ARTIFACTS);
  std::string screenshot = SCADASTORE_ARTIFACTS "/report.png";
  std::filesystem::remove(screenshot);
  auto started = std::chrono::steady_clock::now();
  std::string command = "timeout 120 chromium --headless --no-sandbox --disable-gpu "
                        "--user-data-dir=" + Path("chromium") +
                        " --window-size=1200,2000 --screenshot=" + screenshot +
                        " --dump-dom file://" + Path("report.html") + " >" + Path("dom.html") +
                        " 2>" + Path("chromium.err");
  ASSERT_EQ(std::system(command.c_str()), 0) << command;
  std::cout << "chromium took "
            << std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count()
            << " s; screenshot " << screenshot << '\n';
  EXPECT_GT(std::filesystem::file_size(screenshot), 10000u);
  std::stringstream read;
  read << std::ifstream(Path("dom.html")).rdbuf();
  const std::string dom = read.str();

  // One chart per float column: 23 hours of figures, the line broken where two have none.
  std::vector<std::string> charts = Matches(dom, R"((<svg class="trend"[\s\S]*?</svg>))");
  ASSERT_EQ(charts.size(), 2u);
  for (const std::string& chart : charts) {
    EXPECT_EQ(PointCount(Matches(chart, R"(class="average" points="([^"]*)\")")), 23u);
    EXPECT_EQ(Matches(chart, R"re(class="(average)")re").size(), 2u);
    EXPECT_EQ(PointCount(Matches(chart, R"(class="band" points="([^"]*)\")")), 46u);
    std::vector<std::string> hours = Matches(chart, R"(<text class="hour"[^>]*>(\d\d)</text>)");
    std::vector<std::string> local = {"00", "01", "02", "02"};
    for (int hour = 3; hour < 24; ++hour) local.push_back((hour < 10 ? "0" : "") + std::to_string(hour));
    EXPECT_EQ(hours, local);
  }
  EXPECT_TRUE(Contains(dom, "temp [C]</h3>"));

  // Every alarm standing during the day, the last still open; texts escaped.
  EXPECT_EQ(Matches(dom, R"(<rect class="(alarm)[ "])").size(), 5u);
  EXPECT_EQ(Matches(dom, R"re(<rect class="alarm (level3 open)")re").size(), 1u);
  EXPECT_TRUE(Contains(dom, "north/t&lt;1&gt;</text>"));
  EXPECT_TRUE(Contains(dom, "&lt;b&gt;\"hot\" &amp; 'x'&lt;/b&gt;"));
  EXPECT_EQ(dom.find("<b>"), std::string::npos);
  EXPECT_EQ(dom.find("<script"), std::string::npos);
  EXPECT_TRUE(Contains(dom, "<td>&lt;script&gt;alert(1)&lt;/script&gt; &amp; \"q\"</td>"));
  EXPECT_TRUE(Contains(dom, "1 more row is not shown."));

  // The figures are those of `alarms kpi` for the same period.
  auto kpi = nlohmann::ordered_json::parse(Ok({"alarms", "kpi", "events", "--from", "2024-10-27",
                                                 "--to", "2024-10-28", "--format", "json"}));
  ASSERT_FALSE(kpi.empty());
  for (const auto& [section, rows] : kpi.items()) {
    std::vector<std::string> tables =
        Matches(dom, "<h4>" + section + R"(</h4>\s*(<table>[\s\S]*?</table>))");
    ASSERT_EQ(tables.size(), 1u) << section;
    std::vector<std::string> shown = Matches(tables[0], R"(<tr>([\s\S]*?)</tr>)");
    ASSERT_EQ(shown.size(), rows.size() + 1) << section;
    for (size_t r = 0; r < rows.size(); ++r) {
      std::vector<std::string> cells = Matches(shown[r + 1], R"(<td[^>]*>([^<]*)</td>)");
      ASSERT_EQ(cells.size(), rows[r].size()) << section;
      size_t c = 0;
      for (const auto& [header, value] : rows[r].items()) {
        std::string cell = Unescape(cells[c++]);
        if (value.is_number())
          EXPECT_DOUBLE_EQ(std::stod(cell), value.get<double>()) << section << "." << header;
        else
          EXPECT_EQ(cell, value.is_null() ? "" : value.get<std::string>()) << section << "." << header;
      }
    }
  }
}

}  // namespace
}  // namespace scadastore::tooltest
