// stats on the local calendar of zones that change their clocks: every slot's
// start, length and rows checked against the zone's clock read hour by hour.
#include <time.h>

#include <fstream>
#include <functional>
#include <optional>

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

}  // namespace
}  // namespace scadastore::tooltest
