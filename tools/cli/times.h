// Times on the command line: local date-times or seconds since 1970, and
// the local calendar that the statistics commands step through.
#pragma once

#include <cstdint>
#include <string>

namespace scadastore::cli {

// "2024-05-01 08:00:00", "2024-05-01T08:00", "2024-05-01" (local time) or
// "1714550400" (seconds since 1970). Throws a CommandError naming `what`.
uint32_t ParseTime(const std::string& text, const std::string& what);

// "YYYY-MM-DD HH:MM:SS" in local time.
std::string FormatLocalTime(uint32_t seconds);

// First second of a local calendar day, month or year.
uint32_t LocalStart(int year, int month, int day);

int DaysInMonth(int year, int month);

struct YearMonth {
  int year;
  int month;
};
// "YYYY-MM"
YearMonth ParseYearMonth(const std::string& text);

}  // namespace scadastore::cli
