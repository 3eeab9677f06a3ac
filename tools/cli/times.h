// Times on the command line: local date-times or seconds since 1970, and
// the local calendar that the statistics commands step through.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace scadastore::cli {

// "2024-05-01 08:00:00", "2024-05-01T08:00", "2024-05-01" (local time) or
// "1714550400" (seconds since 1970). Throws a CommandError naming `what`,
// also for a local time that the clocks skip or pass twice.
uint32_t ParseTime(const std::string& text, const std::string& what);

// As ParseTime; the present second when `text` is empty.
uint32_t ParseTimeOrNow(const std::string& text, const std::string& what);

// "YYYY-MM-DD HH:MM:SS" in local time.
std::string FormatLocalTime(uint32_t seconds);

// "YYYY-MM-DD" from 1970; a UsageError naming `what` otherwise.
std::chrono::year_month_day ParseDate(const std::string& text, const char* what);

// First second of a local calendar day.
uint32_t LocalStart(std::chrono::year_month_day date);

// [start, end) in seconds since 1970.
struct Slot {
  uint32_t start, end;
};

// The local hours of a day: 23 on the day the clocks go forward, 25 when
// they go back.
std::vector<Slot> LocalHours(std::chrono::year_month_day date);
// Hours from `start` on, the last one cut at `end`.
std::vector<Slot> HourSlots(uint32_t start, uint32_t end);

// Local times from now on are those of this zone (a name as Europe/Berlin);
// an unknown name is a UsageError.
void UseTimeZone(const std::string& zone);

}  // namespace scadastore::cli
