#include "tools/cli/times.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <vector>

#include <fmt/format.h>

#include "tools/cli/database/session.h"

namespace scadastore::cli {
namespace {

std::string ZoneName() {
  const char* zone = std::getenv("TZ");
  return zone && *zone ? zone : "the local time zone";
}

bool SameWallClock(time_t seconds, const std::tm& asked) {
  std::tm local;
  return localtime_r(&seconds, &local) != nullptr && local.tm_year == asked.tm_year &&
         local.tm_mon == asked.tm_mon && local.tm_mday == asked.tm_mday &&
         local.tm_hour == asked.tm_hour && local.tm_min == asked.tm_min &&
         local.tm_sec == asked.tm_sec;
}

// The instants that show this wall-clock time: none when the clocks skip
// it, two when they go back over it.
std::vector<time_t> Readings(const std::tm& asked) {
  std::vector<time_t> found;
  for (int dst : {0, 1}) {
    std::tm local = asked;
    local.tm_isdst = dst;
    time_t seconds = std::mktime(&local);
    if (seconds != -1 && SameWallClock(seconds, asked) &&
        std::find(found.begin(), found.end(), seconds) == found.end())
      found.push_back(seconds);
  }
  std::sort(found.begin(), found.end());
  return found;
}

uint32_t InRange(time_t seconds, const std::string& text, const std::string& what) {
  if (seconds < 0 || seconds > static_cast<time_t>(UINT32_MAX))
    throw CommandError(fmt::format("{}: '{}' is not a time from 1970 to 2106", what, text));
  return static_cast<uint32_t>(seconds);
}

}  // namespace

uint32_t ParseTime(const std::string& text, const std::string& what) {
  if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
    if (text.size() > 10 || std::stoull(text) > UINT32_MAX)
      throw CommandError(fmt::format("{}: {} is beyond 2106", what, text));
    return static_cast<uint32_t>(std::stoull(text));
  }
  for (const char* pattern : {"%Y-%m-%d %H:%M:%S", "%Y-%m-%dT%H:%M:%S", "%Y-%m-%d %H:%M",
                              "%Y-%m-%dT%H:%M", "%Y-%m-%d"}) {
    std::tm local{};
    const char* end = strptime(text.c_str(), pattern, &local);
    if (end == nullptr || *end != '\0') continue;
    std::vector<time_t> readings = Readings(local);
    if (readings.empty())
      throw CommandError(fmt::format(
          "{}: '{}' does not exist in {} (the clocks skip it); give epoch seconds", what, text,
          ZoneName()));
    if (readings.size() > 1)
      throw CommandError(fmt::format(
          "{}: '{}' happens twice in {} (the clocks go back over it); give epoch seconds", what,
          text, ZoneName()));
    return InRange(readings[0], text, what);
  }
  throw CommandError(fmt::format(
      "{}: '{}' is neither a local date-time (2024-05-01 08:00:00) nor seconds since 1970",
      what, text));
}

uint32_t ParseTimeOrNow(const std::string& text, const std::string& what) {
  return text.empty() ? static_cast<uint32_t>(std::time(nullptr)) : ParseTime(text, what);
}

std::string FormatLocalTime(uint32_t seconds) {
  time_t value = seconds;
  std::tm local;
  if (localtime_r(&value, &local) == nullptr) return std::to_string(seconds);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

uint32_t LocalStart(std::chrono::year_month_day date) {
  std::tm local{};
  local.tm_year = static_cast<int>(date.year()) - 1900;
  local.tm_mon = static_cast<int>(static_cast<unsigned>(date.month())) - 1;
  local.tm_mday = static_cast<int>(static_cast<unsigned>(date.day()));
  std::string text = fmt::format("{:04}-{:02}-{:02}", local.tm_year + 1900, local.tm_mon + 1,
                                 local.tm_mday);
  std::vector<time_t> readings = Readings(local);
  if (!readings.empty()) return InRange(readings[0], text, "date");
  // Midnight skipped: the day starts when the clocks jump.
  local.tm_isdst = -1;
  return InRange(std::mktime(&local), text, "date");
}

std::chrono::year_month_day ParseDate(const std::string& text, const char* what) {
  using namespace std::chrono;
  int y = 0;
  unsigned m = 0, d = 0;
  char end;
  year_month_day date{year(y), month(m), day(d)};
  if (std::sscanf(text.c_str(), "%4d-%2u-%2u%c", &y, &m, &d, &end) == 3)
    date = {year(y), month(m), day(d)};
  if (!date.ok() || y < 1970)
    throw UsageError(fmt::format("{}: '{}' is not a date from 1970", what, text));
  return date;
}

std::vector<Slot> LocalHours(std::chrono::year_month_day date) {
  return HourSlots(LocalStart(date),
                   LocalStart(std::chrono::sys_days(date) + std::chrono::days(1)));
}

std::vector<Slot> HourSlots(uint32_t start, uint32_t end) {
  std::vector<Slot> hours;
  for (uint64_t hour = start; hour < end; hour += 3600)
    hours.push_back({static_cast<uint32_t>(hour), static_cast<uint32_t>(std::min<uint64_t>(hour + 3600, end))});
  return hours;
}

void UseTimeZone(const std::string& zone) {
  const char* directory = std::getenv("TZDIR");
  std::string path = fmt::format("{}/{}", directory && *directory ? directory : "/usr/share/zoneinfo",
                                 zone);
  if (zone.empty() || zone.find("..") != std::string::npos || access(path.c_str(), R_OK) != 0)
    throw UsageError(fmt::format("--tz: unknown time zone '{}' (names as Europe/Berlin)", zone));
  setenv("TZ", zone.c_str(), 1);
  tzset();
}

}  // namespace scadastore::cli
