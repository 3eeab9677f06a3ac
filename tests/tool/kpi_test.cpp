// alarms kpi on an alarm history whose figures are known: a flood window, a
// chattering point beside one that just misses, standing and unconfirmed
// alarms, alarms just outside the period.
#include <fmt/format.h>

#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

constexpr long kFrom = 1714550400, kTo = kFrom + 7200, kDay = 86400;

struct Alarm {
  const char* station;
  std::string tag;
  long arisetime, status, recovertime, level;
};

std::vector<Alarm> History() {
  std::vector<Alarm> alarms;
  for (int i = 0; i < 12; ++i)  // the flood: twelve points in the second window
    alarms.push_back({"north", fmt::format("t{}", i), kFrom + 600 + i * 40, 1, kFrom + 1300, 1});
  for (long at : {3000, 3020, 3050, 3070})  // the last two chatter
    alarms.push_back({"north", "flow", kFrom + at, 0, 0, 2});
  for (long at : {4000, 4030, 4060})  // 60 s from first to third: no chattering
    alarms.push_back({"south", "pump", kFrom + at, 1, kFrom + 5000, 3});
  alarms.push_back({"south", "door", kTo - 3600, 0, 0, 3});  // open, but for less than 24 h
  alarms.push_back({"south", "valve", kFrom - 2 * kDay, 1, 0, 1});           // standing
  alarms.push_back({"south", "valve", kFrom - 2 * kDay, 1, kTo + 100, 1});   // standing
  alarms.push_back({"south", "valve", kFrom - 2 * kDay, 1, kFrom - kDay, 1});
  alarms.push_back({"east", "old", kFrom - 40 * kDay, 1, 0, 1});  // before the look-back
  alarms.push_back({"north", "t0", kFrom - 1, 1, kFrom, 1});
  alarms.push_back({"north", "t0", kTo, 1, kTo, 1});
  return alarms;
}

class Kpi : public EachDatabase {
 protected:
  void SetUp() override {
    EachDatabase::SetUp();
    if (IsSkipped()) return;
    FreshTable("alarm", "kpi_alarms");
    std::string values;
    int id = 0;
    for (const Alarm& a : History())
      values += fmt::format("{}({}, '{}', '{}', {}, {}, {}, 0, {})", values.empty() ? "" : ", ",
                            ++id, a.station, a.tag, a.status, a.recovertime, a.arisetime,
                            a.level);
    Ok({"sql", "--write",
        "insert into kpi_alarms (id, station, tag, status, recovertime, arisetime, millisecond, "
        "alarmlevel) values " + values});
  }
};

TEST_P(Kpi, FiguresOfAKnownHistory) {
  nlohmann::json kpi = Json({"alarms", "kpi", "kpi_alarms", "--from", std::to_string(kFrom), "--to",
                             std::to_string(kTo)});
  EXPECT_EQ(kpi["stations"], nlohmann::json::parse(fmt::format(R"json([
    {{"station": "(all)", "alarms": 20, "per_10min": 1.67, "peak_10min": 12,
     "peak_start": {0}, "flood_pct": 8.3, "standing": 2, "unconfirmed": 5}},
    {{"station": "north", "alarms": 16, "per_10min": 1.33, "peak_10min": 12,
     "peak_start": {0}, "flood_pct": 8.3, "standing": 0, "unconfirmed": 4}},
    {{"station": "south", "alarms": 4, "per_10min": 0.33, "peak_10min": 4,
     "peak_start": {1}, "flood_pct": 0.0, "standing": 2, "unconfirmed": 1}}])json",
                                                                kFrom + 600, kFrom + 3600)));
  ASSERT_EQ(kpi["points"].size(), 10u);
  EXPECT_EQ(kpi["points"][0], nlohmann::json::parse(
                                  R"({"rank": 1, "station": "north", "tag": "flow", "alarms": 4,
                                      "pct": 20.0})"));
  EXPECT_EQ(kpi["points"][1]["tag"], "pump");
  EXPECT_EQ(kpi["points"][2]["alarms"], 1);
  EXPECT_EQ(kpi["chattering"], nlohmann::json::parse(R"([{"station": "north", "tag": "flow",
                                                          "chattering": 2, "alarms": 4}])"));
  std::vector<std::tuple<std::string, int, int, double>> levels;
  for (const auto& row : kpi["levels"])
    levels.emplace_back(row["station"], row["level"], row["alarms"], row["pct"]);
  EXPECT_EQ(levels, (decltype(levels){{"(all)", 1, 12, 60.0}, {"(all)", 2, 4, 20.0},
                                      {"(all)", 3, 4, 20.0}, {"north", 1, 12, 75.0},
                                      {"north", 2, 4, 25.0}, {"south", 3, 4, 100.0}}));

  // The table format names each section; a table of another kind is refused.
  std::string table = Ok({"alarms", "kpi", "kpi_alarms", "--from", std::to_string(kFrom), "--to",
                          std::to_string(kTo), "--format", "table"});
  EXPECT_TRUE(Contains(table, "stations\nstation  alarms"));
  EXPECT_TRUE(Contains(table, "\nchattering\n"));
  Ok({"ensure", "log", "kpi_log"});
  ToolRun other = Run({"alarms", "kpi", "kpi_log", "--from", "2024-05-01", "--to", "2024-05-02"});
  EXPECT_EQ(other.status, 1);
  EXPECT_TRUE(Contains(other.err, "kpi_log is a log table, not an alarm table"));
}

INSTANTIATE_ON_EACH_DATABASE(Kpi);

}  // namespace
}  // namespace scadastore::tooltest
