#include "tools/cli/commands/alarm_kpi.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <ostream>

#include <fmt/format.h>

#include "core/settings.h"

namespace scadastore::cli {
namespace {

std::string TextOf(const Cell& cell) { return cell.is_string() ? cell.get<std::string>() : ""; }

double Percent(uint64_t part, uint64_t whole) { return whole ? 100.0 * part / whole : 0; }

double Rounded(double value, int decimals) {
  double scale = std::pow(10, decimals);
  return std::round(value * scale) / scale;
}

class KpiQueries {
 public:
  KpiQueries(Context& context, const std::string& table, uint32_t from, uint32_t to)
      : context_(context), table_(table), from_(from), to_(to),
        quoted_(context.session.Quote(table)),
        range_(fmt::format("arisetime >= {} and arisetime < {}", from, to)) {}

  // Alarms per station and window.
  ResultTable Windows() {
    std::string window = fmt::format("(arisetime - {}) {} {}", from_,
                                     IntegerDivision(context_.session.kind()), kKpiWindowSeconds);
    return Run(fmt::format("select station, {0} as slot, count(*) as alarms from {1} where {2} "
                           "group by station, {0}",
                           window, quoted_, range_));
  }

  ResultTable Unconfirmed() {
    return Run(fmt::format("select station, count(*) as alarms from {} where {} and "
                           "coalesce(status, 0) = 0 group by station",
                           quoted_, range_));
  }

  ResultTable Standing() {
    uint32_t newest = to_ > kStandingSeconds ? to_ - kStandingSeconds : 0;
    uint32_t oldest = std::min(from_, to_ > kStandingLookbackSeconds
                                          ? to_ - kStandingLookbackSeconds : 0);
    return Run(fmt::format("select station, count(*) as alarms from {} where arisetime >= {} "
                           "and arisetime < {} and (coalesce(recovertime, 0) = 0 or "
                           "recovertime >= {}) group by station",
                           quoted_, oldest, newest, to_));
  }

  ResultTable TopPoints(size_t count) {
    return Run(fmt::format("select station, tag, count(*) as alarms from {} where {} group by "
                           "station, tag order by count(*) desc, station, tag limit {}",
                           quoted_, range_, count));
  }

  // The alarm two before each of the same point, in order of arising.
  ResultTable Chattering() {
    return Run(fmt::format(
        "select station, tag, sum(case when arisetime - before2 < {0} then 1 else 0 end) as "
        "chattering, count(*) as alarms from (select station, tag, arisetime, lag(arisetime, 2) "
        "over (partition by station, tag order by arisetime, millisecond, id) as before2 from "
        "{1} where {2}) points group by station, tag having sum(case when arisetime - before2 "
        "< {0} then 1 else 0 end) > 0 order by chattering desc, station, tag",
        kChatterSeconds, quoted_, range_));
  }

  ResultTable Levels() {
    return Run(fmt::format("select station, alarmlevel, count(*) as alarms from {} where {} "
                           "group by station, alarmlevel order by station, alarmlevel",
                           quoted_, range_));
  }

 private:
  ResultTable Run(const std::string& sql) {
    return RunTextTableQuery(context_, table_.c_str(), sql, nullptr);
  }

  Context& context_;
  const std::string& table_;
  uint32_t from_, to_;
  std::string quoted_, range_;
};

// Total, peak and floods of one station's (or every station's) windows.
void FoldWindows(StationFigures& figures, const std::map<uint32_t, uint64_t>& counts,
                 const AlarmKpi& kpi) {
  for (const auto& [slot, alarms] : counts) {
    figures.alarms += alarms;
    if (alarms > figures.peak) {
      figures.peak = alarms;
      figures.peakStart = kpi.from + slot * kKpiWindowSeconds;
    }
    if (alarms > kFloodAlarms) ++figures.floodWindows;
  }
  figures.perWindow = static_cast<double>(figures.alarms) / kpi.windows;
  figures.floodPercent = Percent(figures.floodWindows, kpi.windows);
}

std::vector<Cell> StationRow(const StationFigures& figures, const OutputOptions& options) {
  return {figures.station,
          figures.alarms,
          Rounded(figures.perWindow, 2),
          figures.peak,
          figures.peakStart ? TimeCell(figures.peakStart, options) : Cell(),
          Rounded(figures.floodPercent, 1),
          figures.standing,
          figures.unconfirmed};
}

}  // namespace

AlarmKpi ComputeAlarmKpi(Context& context, const std::string& table, uint32_t from, uint32_t to) {
  if (from >= to) throw UsageError("alarms kpi: --from must be before --to");
  TableSchema schema = ReadSchema(context.session, table);
  if (schema.Kind() != "alarm")
    throw CommandError(fmt::format("{} is a {} table, not an alarm table", table, schema.Kind()));

  AlarmKpi kpi;
  kpi.table = table;
  kpi.from = from;
  kpi.to = to;
  kpi.windows = (to - from + kKpiWindowSeconds - 1) / kKpiWindowSeconds;
  KpiQueries queries(context, table, from, to);

  std::map<std::string, std::map<uint32_t, uint64_t>> stationWindows;
  std::map<uint32_t, uint64_t> allWindows;
  for (const auto& row : queries.Windows().rows) {
    uint64_t alarms = CountCell(row[2]);
    auto slot = static_cast<uint32_t>(CountCell(row[1]));
    stationWindows[TextOf(row[0])][slot] += alarms;
    allWindows[slot] += alarms;
  }
  std::map<std::string, StationFigures> stations;
  for (const auto& [station, counts] : stationWindows) {
    stations[station].station = station;
    FoldWindows(stations[station], counts, kpi);
  }
  kpi.overall.station = kAllStations;
  FoldWindows(kpi.overall, allWindows, kpi);

  auto addCounts = [&](const ResultTable& result, uint64_t StationFigures::*field) {
    for (const auto& row : result.rows) {
      StationFigures& figures = stations[TextOf(row[0])];
      figures.station = TextOf(row[0]);
      figures.*field += CountCell(row[1]);
      kpi.overall.*field += CountCell(row[1]);
    }
  };
  addCounts(queries.Standing(), &StationFigures::standing);
  addCounts(queries.Unconfirmed(), &StationFigures::unconfirmed);
  for (auto& [name, figures] : stations) kpi.stations.push_back(figures);

  for (const auto& row : queries.TopPoints(10).rows)
    kpi.topPoints.push_back({TextOf(row[0]), TextOf(row[1]), CountCell(row[2]),
                             Percent(CountCell(row[2]), kpi.overall.alarms)});
  for (const auto& row : queries.Chattering().rows)
    kpi.chattering.push_back(
        {TextOf(row[0]), TextOf(row[1]), CountCell(row[2]), CountCell(row[3])});

  std::map<uint32_t, uint64_t> allLevels;
  std::vector<LevelFigures> stationLevels;
  for (const auto& row : queries.Levels().rows) {
    auto level = static_cast<uint32_t>(CountCell(row[1]));
    uint64_t alarms = CountCell(row[2]);
    allLevels[level] += alarms;
    stationLevels.push_back({TextOf(row[0]), level, alarms,
                             Percent(alarms, stations[TextOf(row[0])].alarms)});
  }
  for (const auto& [level, alarms] : allLevels)
    kpi.levels.push_back({kAllStations, level, alarms, Percent(alarms, kpi.overall.alarms)});
  kpi.levels.insert(kpi.levels.end(), stationLevels.begin(), stationLevels.end());
  return kpi;
}

std::vector<KpiSection> KpiTables(const AlarmKpi& kpi, const OutputOptions& options) {
  ResultTable stations{{"station", "alarms", "per_10min", "peak_10min", "peak_start",
                        "flood_pct", "standing", "unconfirmed"},
                       {StationRow(kpi.overall, options)}};
  for (const StationFigures& figures : kpi.stations)
    stations.rows.push_back(StationRow(figures, options));

  ResultTable points{{"rank", "station", "tag", "alarms", "pct"}, {}};
  for (const PointFigures& point : kpi.topPoints)
    points.rows.push_back({points.rows.size() + 1, point.station, point.tag, point.alarms,
                           Rounded(point.percent, 1)});

  ResultTable chattering{{"station", "tag", "chattering", "alarms"}, {}};
  for (const ChatteringPoint& point : kpi.chattering)
    chattering.rows.push_back({point.station, point.tag, point.chattering, point.alarms});

  ResultTable levels{{"station", "level", "alarms", "pct"}, {}};
  for (const LevelFigures& level : kpi.levels)
    levels.rows.push_back({level.station, level.level, level.alarms, Rounded(level.percent, 1)});

  return {{"stations", std::move(stations)},
          {"points", std::move(points)},
          {"chattering", std::move(chattering)},
          {"levels", std::move(levels)}};
}

void PrintKpi(const AlarmKpi& kpi, const OutputOptions& options, std::ostream& out) {
  std::vector<KpiSection> sections = KpiTables(kpi, options);
  if (options.format == Format::Json) {
    nlohmann::ordered_json all = nlohmann::ordered_json::object();
    for (const KpiSection& section : sections) {
      nlohmann::ordered_json rows = nlohmann::ordered_json::array();
      for (const auto& row : section.table.rows) {
        nlohmann::ordered_json object = nlohmann::ordered_json::object();
        for (size_t c = 0; c < row.size(); ++c) object[section.table.headers[c]] = row[c];
        rows.push_back(std::move(object));
      }
      all[section.name] = std::move(rows);
    }
    out << all.dump(2) << '\n';
    return;
  }
  for (size_t s = 0; s < sections.size(); ++s) {
    out << (s ? "\n" : "") << sections[s].name << '\n';
    Print(sections[s].table, options, out);
  }
}

}  // namespace scadastore::cli
