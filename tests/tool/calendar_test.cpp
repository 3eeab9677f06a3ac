// stats on the local calendar of zones that change their clocks: every slot's
// start, length and rows checked against the zone's clock read hour by hour.
#include <time.h>

#include <cmath>
#include <fstream>
#include <functional>
#include <optional>

#include <fmt/format.h>

#include "tool_runner.h"

namespace scadastore::tooltest {
namespace {

// Samples every half hour from 2023-12-30 to 2025-01-02 (UTC): `one` is 1
// and `at` counts the samples, so a slot's sums give its rows and which.
constexpr long kFirst = 1703894400, kEnd = 1735776000, kStep = 1800;

struct Slot {
  long start, end;
};

// Hours of `zone` grouped into slots by `key` (nullopt: outside every slot).
std::vector<Slot> ClockSlots(const char* zone,
                             const std::function<std::optional<int>(const std::tm&)>& key) {
  std::string saved = std::getenv("TZ");
  setenv("TZ", zone, 1);
  tzset();
  std::vector<Slot> slots;
  std::optional<int> last;
  for (time_t hour = kFirst; hour < kEnd; hour += 3600) {
    std::tm local;
    localtime_r(&hour, &local);
    std::optional<int> current = key(local);
    if (current && current != last) slots.push_back({hour, hour});
    if (current) slots.back().end = hour + 3600;
    last = current;
  }
  setenv("TZ", saved.c_str(), 1);
  tzset();
  return slots;
}

class Calendar : public EachDatabase {
 protected:
  void SetUp() override {
    EachDatabase::SetUp();
    if (IsSkipped()) return;
    FreshTable("data", "tool_calendar", "one,at");
    std::ofstream csv(Path("half_hours.csv"));
    csv << "time,one,at\n";
    for (long t = kFirst; t < kEnd; t += kStep) csv << t << ",1," << (t - kFirst) / kStep << '\n';
    csv.close();
    Ok({"records", "import", "tool_calendar", Path("half_hours.csv")});
  }

  void ExpectSlots(const char* zone, const std::string& option, const std::string& value,
                   const std::vector<Slot>& slots) {
    SCOPED_TRACE(std::string(zone) + " " + option + " " + value);
    nlohmann::json rows =
        Json({"--tz", zone, "stats", "tool_calendar", option, value, "--stat", "sum"});
    ASSERT_EQ(rows.size(), slots.size());
    for (size_t i = 0; i < slots.size(); ++i) {
      long first = (slots[i].start - kFirst) / kStep, count = (slots[i].end - slots[i].start) / kStep;
      EXPECT_EQ(rows[i]["time"], slots[i].start) << i;
      EXPECT_EQ(rows[i]["hours"].get<double>(), (slots[i].end - slots[i].start) / 3600.0) << i;
      EXPECT_EQ(rows[i]["one"].get<double>(), static_cast<double>(count)) << i;
      EXPECT_EQ(rows[i]["at"].get<double>(), static_cast<double>(count * first + count * (count - 1) / 2))
          << i;
    }
  }
};

TEST_P(Calendar, SlotsFollowTheLocalClockAcrossItsChanges) {
  struct Zone {
    const char* name;
    int forward[2], back[2];  // month and day of the changes in 2024
  };
  for (const Zone& zone : {Zone{"Europe/Berlin", {3, 31}, {10, 27}},
                           Zone{"America/New_York", {3, 10}, {11, 3}}}) {
    ExpectSlots(zone.name, "--year", "2024", ClockSlots(zone.name, [](const std::tm& t) {
                  return t.tm_year == 124 ? std::optional(t.tm_mon) : std::nullopt;
                }));
    for (const int* change : {zone.forward, zone.back}) {
      int month = change[0], day = change[1];
      char text[16];
      std::snprintf(text, sizeof text, "2024-%02d", month);
      ExpectSlots(zone.name, "--month", text, ClockSlots(zone.name, [&](const std::tm& t) {
                    return t.tm_year == 124 && t.tm_mon == month - 1 ? std::optional(t.tm_mday)
                                                                     : std::nullopt;
                  }));
      std::snprintf(text, sizeof text, "2024-%02d-%02d", month, day);
      // Each hour its own slot, the repeated one too.
      std::vector<Slot> hours = ClockSlots(zone.name, [&](const std::tm& t) {
        return t.tm_year == 124 && t.tm_mon == month - 1 && t.tm_mday == day
                   ? std::optional(t.tm_hour * 2 + t.tm_isdst)
                   : std::nullopt;
      });
      ASSERT_EQ(hours.size(), change == zone.forward ? 23u : 25u);
      ExpectSlots(zone.name, "--day", text, hours);
    }
  }
}

INSTANTIATE_ON_EACH_DATABASE(Calendar);

// stats --stat twa|integral on irregular samples with gaps across the day the
// clocks go back, on SQLite, PostgreSQL and MariaDB, against the step
// integral computed here sample by sample.
class TimeWeighted : public EachDatabase {};

TEST_P(TimeWeighted, StepIntegralPerLocalHour) {
  // 2024-10-27 in Berlin runs from 22:00 UTC the day before, for 25 hours.
  constexpr double kDay = 1729980000;
  std::string csv = "time,ms,v\n";
  double at = kDay - 4000;  // the first slot starts with the value held from before it
  for (int k = 0; at < kDay + 25 * 3600; ++k) {
    csv += fmt::format("{},{},{}\n", static_cast<long>(at), k * 137 % 1000,
                       std::fmod(k * 7.25, 23) - 5);  // exact in a float column too
    // Gaps over 4 hours, so that whole hours have no sample of their own.
    at += k % 9 == 8 ? 4 * 3600 + 17 : 61 + k * 389 % 1500;
  }
  WriteFile("irregular.csv", csv);
  FreshTable("data", "weighted", "v");
  Ok({"records", "import", "weighted", Path("irregular.csv")});
  struct Sample {
    double at, value;  // at: seconds with the milliseconds
  };
  std::vector<Sample> samples;  // as the database keeps them
  for (const auto& row : Json({"records", "weighted"}))
    samples.push_back({row["time"].get<double>() + row["ms"].get<double>() / 1000, row["v"]});

  nlohmann::json twa = Json({"--tz", "Europe/Berlin", "stats", "weighted", "--day", "2024-10-27",
                             "--stat", "twa"});
  nlohmann::json integral = Json({"--tz", "Europe/Berlin", "stats", "weighted", "--day",
                                  "2024-10-27", "--stat", "integral"});
  ASSERT_EQ(twa.size(), 25u);
  ASSERT_EQ(integral.size(), 25u);
  for (size_t h = 0; h < 25; ++h) {
    double start = kDay + 3600.0 * h, end = start + 3600, sum = 0;
    for (size_t k = 0; k < samples.size(); ++k) {
      double from = std::max(samples[k].at, start);
      double to = std::min(k + 1 < samples.size() ? samples[k + 1].at : end, end);
      if (to > from) sum += samples[k].value * (to - from);
    }
    EXPECT_EQ(twa[h]["time"], start) << h;
    EXPECT_NEAR(integral[h]["v"].get<double>(), sum, 1e-9 * std::abs(sum)) << h;
    EXPECT_NEAR(twa[h]["v"].get<double>(), sum / 3600, 1e-9 * std::abs(sum / 3600)) << h;
  }

  // A sample holding whole hours: every bit of value x 3600.
  WriteFile("exact.csv", fmt::format("time,v\n1730156400,{:.17g}\n", 0.1 + 0.2));
  Ok({"records", "import", "weighted", Path("exact.csv")});
  EXPECT_EQ(Json({"--tz", "Europe/Berlin", "stats", "weighted", "--day", "2024-10-29", "--stat",
                  "integral"})[1]["v"].get<double>(),
            (0.1 + 0.2) * 3600);
}

INSTANTIATE_ON_EACH_DATABASE(TimeWeighted);

}  // namespace
}  // namespace scadastore::tooltest
