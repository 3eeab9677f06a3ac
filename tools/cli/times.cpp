#include "tools/cli/times.h"

#include <cstdio>
#include <ctime>

#include <fmt/format.h>

#include "tools/cli/session.h"

namespace scadastore::cli {
namespace {

uint32_t ToSeconds(std::tm& local, const std::string& text, const std::string& what) {
  local.tm_isdst = -1;  // let the zone decide whether daylight saving applies
  std::tm asked = local;
  time_t seconds = std::mktime(&local);
  if (seconds < 0 || seconds > static_cast<time_t>(UINT32_MAX) ||
      local.tm_mday != asked.tm_mday || local.tm_mon != asked.tm_mon)
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
    if (end != nullptr && *end == '\0') return ToSeconds(local, text, what);
  }
  throw CommandError(fmt::format(
      "{}: '{}' is neither a local date-time (2024-05-01 08:00:00) nor seconds since 1970",
      what, text));
}

std::string FormatLocalTime(uint32_t seconds) {
  time_t value = seconds;
  std::tm local;
  if (localtime_r(&value, &local) == nullptr) return std::to_string(seconds);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &local);
  return text;
}

uint32_t LocalStart(int year, int month, int day) {
  std::tm local{};
  local.tm_year = year - 1900;
  local.tm_mon = month - 1;
  local.tm_mday = day;
  return ToSeconds(local, fmt::format("{:04}-{:02}-{:02}", year, month, day), "date");
}

int DaysInMonth(int year, int month) {
  static const int days[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return month == 2 && leap ? 29 : days[month - 1];
}

YearMonth ParseYearMonth(const std::string& text) {
  YearMonth value{};
  char end;
  if (std::sscanf(text.c_str(), "%4d-%2d%c", &value.year, &value.month, &end) != 2 ||
      value.month < 1 || value.month > 12)
    throw CommandError(fmt::format("--month: '{}' is not YYYY-MM", text));
  return value;
}

}  // namespace scadastore::cli
