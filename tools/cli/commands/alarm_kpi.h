// Alarm-management figures of an alarm table over a period, each computed
// by the database in one select over the period's time range.
#pragma once

#include <cstdint>
#include <iosfwd>
#include <string>
#include <vector>

#include "tools/cli/command.h"

namespace scadastore::cli {

// The station name of the figures over every station.
inline constexpr const char* kAllStations = "(all)";

// Alarms arising in one 10-minute window; windows are aligned to the
// period's start, the last one may be shorter.
inline constexpr uint32_t kKpiWindowSeconds = 600;
// A window with more alarms than this is in flood.
inline constexpr uint32_t kFloodAlarms = 10;
// An alarm chatters when it arises less than this after the alarm two
// before it of the same point (three alarms of one point within 60 s).
inline constexpr uint32_t kChatterSeconds = 60;
// An alarm not recovered this long at the period's end is standing.
inline constexpr uint32_t kStandingSeconds = 86400;
// Standing alarms are looked for among those raised since the period's
// start or this long before its end, whichever is earlier.
inline constexpr uint32_t kStandingLookbackSeconds = 30 * 86400;

struct StationFigures {
  std::string station;
  uint64_t alarms = 0;       // arisen in the period
  double perWindow = 0;      // average alarms per window
  uint64_t peak = 0;         // most alarms in one window
  uint32_t peakStart = 0;    // start of the first window with the peak; 0 without alarms
  uint64_t floodWindows = 0; // windows with more than kFloodAlarms
  double floodPercent = 0;   // of all windows of the period
  uint64_t standing = 0;     // not recovered kStandingSeconds at the period's end
  uint64_t unconfirmed = 0;  // arisen in the period, status 0
};

struct PointFigures {
  std::string station, tag;
  uint64_t alarms = 0;
  double percent = 0;  // of all alarms of the period
};

struct ChatteringPoint {
  std::string station, tag;
  uint64_t chattering = 0;  // alarms that complete three within kChatterSeconds
  uint64_t alarms = 0;      // all of the point's alarms in the period
};

struct LevelFigures {
  std::string station;  // kAllStations first, then each station
  uint32_t level = 0;
  uint64_t alarms = 0;
  double percent = 0;  // of the station's alarms
};

struct AlarmKpi {
  std::string table;
  uint32_t from = 0, to = 0;  // [from, to)
  uint32_t windows = 0;
  StationFigures overall;                // station kAllStations
  std::vector<StationFigures> stations;  // by name
  std::vector<PointFigures> topPoints;   // the ten most frequent, most first
  std::vector<ChatteringPoint> chattering;  // most chattering first
  std::vector<LevelFigures> levels;
};

// Throws a CommandError when `table` is no alarm table, a UsageError when
// the period is empty.
AlarmKpi ComputeAlarmKpi(Context& context, const std::string& table, uint32_t from, uint32_t to);

// The figures as the tables "stations", "points", "chattering" and "levels".
struct KpiSection {
  std::string name;
  ResultTable table;
};
std::vector<KpiSection> KpiTables(const AlarmKpi& kpi, const OutputOptions& options);

// Table and CSV: each section under its name, a blank line between. JSON:
// one object with a member per section.
void PrintKpi(const AlarmKpi& kpi, const OutputOptions& options, std::ostream& out);

}  // namespace scadastore::cli
