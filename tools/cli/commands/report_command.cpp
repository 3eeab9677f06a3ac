// report: one self-contained HTML page of a period: trends of the data
// tables (hourly figures computed by the database), the alarm timeline,
// and the log entries.
#include <cmath>
#include <fstream>
#include <memory>
#include <set>

#include <fmt/format.h>

#include "tools/cli/commands/alarm_kpi.h"
#include "tools/cli/commands/figure_statements.h"
#include "tools/cli/command.h"
#include "tools/cli/database/data_table.h"
#include "tools/cli/report/report_html.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

// A chart has at most a month of hourly points; a longer range (up to a
// year and a day) has points of several hours each.
constexpr size_t kMaxPoints = 31 * 24 + 1;
constexpr uint32_t kMaxSeconds = 367u * 86400;
constexpr size_t kTimelineRows = 100;

Buckets ReportBuckets(const ReportOptions& options) {
  Slot range;
  if (!options.day.empty()) {
    std::vector<Slot> hours = LocalHours(ParseDate(options.day, "--day"));
    range = {hours.front().start, hours.back().end};
  } else {
    if (options.range.from.empty() || options.range.to.empty())
      throw UsageError("report: give --day, or --from and --to");
    range = ParseBoundedTimeRange(options.range);
    if (range.end - range.start > kMaxSeconds)
      throw UsageError(fmt::format("report: at most a year; {} to {} is longer",
                                   options.range.from, options.range.to));
  }
  return SplitRange(range, kMaxPoints, 3600);
}

std::vector<Slot> BucketSlots(const Buckets& buckets) {
  std::vector<Slot> slots;
  for (uint64_t start = buckets.range.start; start < buckets.range.end; start += buckets.width)
    slots.push_back({static_cast<uint32_t>(start),
                     static_cast<uint32_t>(std::min<uint64_t>(start + buckets.width,
                                                               buckets.range.end))});
  return slots;
}

// COLUMN=UNIT of each --unit.
std::map<std::string, std::string> ParseUnits(const std::vector<std::string>& units) {
  std::map<std::string, std::string> parsed;
  for (const std::string& unit : units) {
    size_t equals = unit.find('=');
    if (equals == 0 || equals == std::string::npos)
      throw UsageError(fmt::format("--unit '{}' is not COLUMN=UNIT", unit));
    parsed[unit.substr(0, equals)] = unit.substr(equals + 1);
  }
  return parsed;
}

std::vector<std::string> SplitList(const std::string& list) {
  std::vector<std::string> names;
  for (size_t start = 0; start <= list.size();) {
    size_t comma = std::min(list.find(',', start), list.size());
    if (comma > start) names.push_back(list.substr(start, comma - start));
    start = comma + 1;
  }
  return names;
}

struct Tables {
  std::vector<std::string> data, alarm, log;
};

Tables ReportTables(Session& session, const std::vector<std::string>& chosen) {
  Tables tables;
  bool all = chosen.empty();
  for (const std::string& name : all ? ListTables(session) : chosen) {
    std::string kind = ReadSchema(session, name).Kind();
    if (kind == "data") tables.data.push_back(name);
    else if (kind == "alarm") tables.alarm.push_back(name);
    else if (kind == "log") tables.log.push_back(name);
    else if (!all)
      throw UsageError(fmt::format("report: {} is not a data, alarm or log table", name));
  }
  return tables;
}

// The float columns of a data table that --columns names, in its order;
// all of them without --columns.
std::vector<size_t> ChartedColumns(const DataTable& table, const std::vector<std::string>& names) {
  std::vector<size_t> charted;
  const std::vector<Column>& columns = table.columns();
  for (size_t c = 0; c < columns.size(); ++c)
    if (columns[c].type == SCADASTORE_VALUE_FLOAT &&
        (names.empty() || std::find(names.begin(), names.end(), columns[c].name) != names.end()))
      charted.push_back(c);
  if (!names.empty())
    std::sort(charted.begin(), charted.end(), [&](size_t a, size_t b) {
      return std::find(names.begin(), names.end(), columns[a].name) <
             std::find(names.begin(), names.end(), columns[b].name);
    });
  return charted;
}

// Min, max and average of every bucket, all in one statement per table, so
// that the time follows the rows of the range, not its buckets.
std::vector<Trend> Trends(Session& session, const DataTable& table,
                          const std::vector<size_t>& charted, const Buckets& buckets,
                          const std::map<std::string, std::string>& units) {
  std::vector<Trend> trends;
  std::vector<std::string> names;
  for (size_t c : charted) {
    const std::string& name = table.columns()[c].name;
    auto unit = units.find(name);
    trends.push_back({name, unit == units.end() ? "" : unit->second, {}});
    names.push_back(name);
  }
  for (const Slot& slot : BucketSlots(buckets))
    for (Trend& trend : trends) trend.hours.push_back({slot, NAN, NAN, NAN});
  auto number = [](const std::optional<std::string>& text) {
    return text ? std::strtod(text->c_str(), nullptr) : NAN;
  };
  try {
    OdbcStatement statement = session.Database().Statement();
    statement.Execute(BucketFiguresStatement(session.kind(), table.name(), names, buckets));
    while (statement.Fetch()) {
      size_t bucket = std::stoul(statement.Text(1).value_or("0"));
      for (size_t t = 0; t < trends.size() && bucket < trends[t].hours.size(); ++t) {
        HourFigures& figures = trends[t].hours[bucket];
        int first = static_cast<int>(2 + 3 * t);
        figures.min = number(statement.Text(first));
        figures.max = number(statement.Text(first + 1));
        figures.average = number(statement.Text(first + 2));
      }
    }
  } catch (const OdbcError& error) {
    throw CommandError(fmt::format("report: figures of {}: {}", table.name(), error.what()));
  }
  return trends;
}

// Alarms that stand during the period: raised before its end and not
// recovered before its start.
std::vector<AlarmSpan> AlarmSpans(Context& context, const std::string& table, Slot period) {
  std::string sql = fmt::format(
      "select station, tag, alarmlevel, arisetime, recovertime, description from {} where "
      "arisetime < {} and (recovertime is null or recovertime = 0 or recovertime >= {}) "
      "order by arisetime",
      context.session.Quote(table), period.end, period.start);
  ResultTable rows = RunTextTableQuery(context, table.c_str(), sql, "");
  auto number = [](const Cell& cell) {
    return static_cast<uint32_t>(std::strtoul(CellText(cell).c_str(), nullptr, 10));
  };
  std::vector<AlarmSpan> spans;
  for (const auto& row : rows.rows)
    spans.push_back({CellText(row[0]), CellText(row[1]), CellText(row[5]), number(row[2]),
                     number(row[3]), number(row[4])});
  return spans;
}

// The entries of the period, the first `maxRows` of them as a table.
std::string LogSection(Context& context, const std::string& table, Slot period, size_t maxRows,
                       size_t& entries) {
  LibraryBlock<LogRecord> records;
  context.session.Check(logGetLogByTime(context.session.Token(), table.c_str(), period.start,
                                        period.end - 1, &records.data, &records.size),
                        "report: log entries");
  entries = records.count();
  ResultTable rows{{"time", "type", "source", "operator", "info"}, {}};
  for (size_t i = 0; i < std::min(entries, maxRows); ++i) {
    const LogRecord& record = records.data[i];
    uint32_t type = record.logtype;  // packed: no reference to the field
    rows.rows.push_back({FormatLocalTime(record.logtime), type, record.source,
                         record.operator_, record.loginfo});
  }
  return HtmlTable(rows, entries - rows.rows.size());
}

}  // namespace

void WriteReport(Context& context, const ReportOptions& options) {
  Buckets buckets = ReportBuckets(options);
  std::vector<Slot> hours = BucketSlots(buckets);
  Slot period = buckets.range;
  std::map<std::string, std::string> units = ParseUnits(options.units);
  std::vector<std::string> columnNames = SplitList(options.columns);
  Session& session = context.session;
  Tables tables = ReportTables(session, options.tables);

  std::string body = fmt::format(
      "<p>{} to {} ({}), {} hours{}. Database: {}.</p>\n", FormatLocalTime(period.start),
      FormatLocalTime(period.end), EscapeHtml(std::getenv("TZ") ? std::getenv("TZ") : "local time"),
      (period.end - period.start + 3599) / 3600,
      buckets.width > 3600 ? fmt::format(", a point per {} hours", buckets.width / 3600) : "",
      EscapeHtml(session.Describe()));
  size_t charts = 0, alarms = 0, entries = 0;
  std::set<std::string> charted;
  for (const std::string& name : tables.data) {
    DataTable table = ReadDataTable(session, name);
    std::vector<size_t> columns = ChartedColumns(table, columnNames);
    if (columns.empty()) continue;
    body += fmt::format("<h2>Trends of {}</h2>\n<p class=\"note\">Per point: the band "
                        "spans minimum to maximum, the line is the average.</p>\n"
                        "<div class=\"charts\">\n",
                        EscapeHtml(name));
    for (const Trend& trend : Trends(session, table, columns, buckets, units)) {
      body += fmt::format("<div class=\"chart\"><h3>{}{}</h3>\n{}</div>\n",
                          EscapeHtml(trend.column),
                          trend.unit.empty() ? "" : " [" + EscapeHtml(trend.unit) + "]",
                          TrendChart(trend));
      charted.insert(trend.column);
      ++charts;
    }
    body += "</div>\n";
  }
  for (const std::string& name : columnNames)
    if (!charted.count(name))
      throw UsageError(fmt::format("--columns: no float column {} in {}", name,
                                   JoinNames(tables.data)));
  for (const auto& [column, unit] : units)
    if (!charted.count(column))
      throw UsageError(fmt::format("--unit: {} is not a charted column", column));

  for (const std::string& name : tables.alarm) {
    std::vector<AlarmSpan> spans = AlarmSpans(context, name, period);
    alarms += spans.size();
    body += fmt::format("<h2>Alarms of {}</h2>\n<p>{} alarms stood during the period.</p>\n",
                        EscapeHtml(name), spans.size());
    if (!spans.empty()) body += AlarmTimeline(spans, hours, kTimelineRows);
    AlarmKpi kpi = ComputeAlarmKpi(context, name, period.start, period.end);
    body += "<h3>Alarm-management figures</h3>\n<div class=\"kpi\">\n";
    for (const KpiSection& section : KpiTables(kpi, {Format::Table, false}))
      body += fmt::format("<h4>{}</h4>\n{}", EscapeHtml(section.name), HtmlTable(section.table));
    body += "</div>\n";
  }
  for (const std::string& name : tables.log) {
    size_t count = 0;
    std::string table = LogSection(context, name, period, options.logRows, count);
    entries += count;
    body += fmt::format("<h2>Log of {}</h2>\n<p>{} entries.</p>\n{}", EscapeHtml(name), count,
                        count > 0 ? table : "");
  }

  std::string title = options.day.empty()
                          ? fmt::format("History report {} to {}", FormatLocalTime(period.start),
                                        FormatLocalTime(period.end))
                          : "History report " + options.day;
  std::ofstream file(options.output, std::ios::binary | std::ios::trunc);
  file << HtmlPage(title, body);
  file.close();
  if (!file) throw CommandError(fmt::format("report: cannot write {}", options.output));
  std::cout << fmt::format("report: {} ({} charts, {} alarms, {} log entries)\n", options.output,
                           charts, alarms, entries);
}

void AddReportCommand(CLI::App& app, Context& context) {
  Command report = AddCommand<ReportOptions>(
      app, context,
      {"report",
       "Write one HTML page of a local --day or of [--from, --to) up to a year: for every "
       "data table a chart of each float column (the minimum-maximum band and average of each "
       "local hour, or of a few hours each beyond 31 days, computed by the database in one "
       "statement per table), the alarm timeline of every alarm table (raised to "
       "recovered, coloured by level) and the entries of every log table. The page needs no "
       "network and no script, and prints on white",
       "scadastore --sqlite build/demo.db --tz Europe/Berlin report --day 2024-05-01 "
       "--unit north_temp=C -o report.html"},
      WriteReport);
  ReportOptions& options = report.options;
  auto* day = report.app->add_option("--day", options.day, "a local day, YYYY-MM-DD");
  auto [from, to] = AddTimeRange(*report.app, options.range);
  from->excludes(day);
  to->excludes(day)->description(to->get_description() + "; at most a year after --from");
  report.app->add_option("-o,--output", options.output, "the HTML file to write")->required();
  report.app->add_option("--table", options.tables,
                         "a table to report (repeatable); default: every data, alarm and log "
                         "table");
  report.app->add_option("--columns", options.columns,
                         "float columns to chart, by name and in this order; default: all");
  report.app->add_option("--unit", options.units,
                         "COLUMN=UNIT shown beside a chart's title (repeatable), for a column "
                         "whose name does not say its unit");
  report.app->add_option("--log-rows", options.logRows,
                         "log entries shown per table; the rest are counted")
      ->capture_default_str();
}

}  // namespace scadastore::cli
