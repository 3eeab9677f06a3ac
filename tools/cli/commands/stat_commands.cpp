// stats: the database's max, min, sum, average, time-weighted average or
// integral of the float columns over one interval, or per hour of a local
// day, per day of a month, per month of a year. Calendar slots follow the local clock: a day when it changes
// has 23 or 25 hourly slots, and each slot is asked for on its own.
#include <chrono>
#include <cmath>
#include <memory>
#include <optional>

#include <fmt/format.h>

#include "core/exact_double.h"

#include "tools/cli/command.h"
#include "tools/cli/commands/figure_statements.h"
#include "tools/cli/database/data_table.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

using namespace std::chrono;

struct StatOptions {
  std::string table, columns, day, month, stat = "avg";
  TimeRangeOptions range;
  int year = 0;
};

// Hourly slots of a local day, daily slots of a month, monthly of a year.
std::vector<Slot> CalendarSlots(const StatOptions& options) {
  if (!options.day.empty()) return LocalHours(ParseDate(options.day, "--day"));
  std::vector<Slot> slots;
  if (!options.month.empty()) {
    year_month_day first = ParseDate(options.month + "-01", "--month");
    for (sys_days d = first; d < sys_days(first + months(1)); d += std::chrono::days(1))
      slots.push_back({LocalStart(d), LocalStart(d + std::chrono::days(1))});
  } else {
    if (options.year < 1970) throw UsageError("--year: give a year from 1970");
    for (unsigned m = 1; m <= 12; ++m) {
      year_month_day first{year(options.year), month(m), day(1)};
      slots.push_back({LocalStart(first), LocalStart(first + months(1))});
    }
  }
  return slots;
}

std::vector<Slot> Slots(const StatOptions& options) {
  if (!options.range.from.empty() || !options.range.to.empty())
    return {ParseBoundedTimeRange(options.range)};
  if (options.day.empty() && options.month.empty() && options.year == 0)
    throw UsageError("stats: give --from and --to, --day, --month or --year");
  return CalendarSlots(options);
}

uint32_t StatisticCode(const std::string& name) {
  if (name == "max") return SCADASTORE_STAT_MAX;
  if (name == "min") return SCADASTORE_STAT_MIN;
  if (name == "sum") return SCADASTORE_STAT_SUM;
  return SCADASTORE_STAT_AVERAGE;
}

// The time-weighted average or the integral of each column over the slot,
// from one statement on the tool's connection; null where no sample holds.
std::vector<Cell> TimeWeighted(Session& session, const DataTable& table,
                               const std::vector<std::string>& columns, const Slot& slot,
                               bool integral) {
  std::vector<Cell> figures;
  try {
    OdbcStatement statement = session.Database().Statement();
    // Every bit of the sums: SQLite's driver would pass them as 15-digit text.
    const bool sqlite = session.Database().IsSqlite();
    std::string sql = TimeWeightedStatement(session.kind(), table.name(), columns, slot);
    statement.Execute(sqlite ? ExactSqliteDoubles(sql, 2 * columns.size()) : sql);
    statement.Fetch();
    auto number = [&](size_t c) -> std::optional<double> {
      std::optional<std::string> text = statement.Text(static_cast<int>(c), !sqlite);
      return text ? std::optional(ParseExactFloat(*text)) : std::nullopt;
    };
    for (size_t c = 0; c < columns.size(); ++c) {
      std::optional<double> sum = number(2 * c + 1);
      double held = number(2 * c + 2).value_or(0);
      if (!sum || held <= 0) figures.emplace_back();
      else if (integral) figures.emplace_back(*sum);
      else figures.emplace_back(*sum / held);
    }
  } catch (const OdbcError& error) {
    throw CommandError(fmt::format("stats: {}: {}", table.name(), error.what()));
  }
  return figures;
}

void RunStats(Context& context, const StatOptions& options) {
  uint32_t statistic = StatisticCode(options.stat);
  bool weighted = options.stat == "twa" || options.stat == "integral";
  std::vector<Slot> slots = Slots(options);
  DataTable table = ReadDataTable(context.session, options.table, statistic);
  std::vector<std::string> floats;
  std::vector<size_t> floatColumns;  // positions in the table
  for (size_t c = 0; c < table.columns().size(); ++c)
    if (table.columns()[c].type == SCADASTORE_VALUE_FLOAT) {
      floats.push_back(table.columns()[c].name);
      floatColumns.push_back(c);
    }
  std::vector<size_t> chosen = SelectColumns(floats, options.columns, table.name());
  std::vector<std::string> headers = {"time", "hours"};
  for (size_t c : chosen) headers.push_back(floats[c]);

  RowWriter writer(headers, context.Output().format, std::cout);
  std::vector<std::string> chosenNames;
  for (size_t c : chosen) chosenNames.push_back(floats[c]);
  for (const Slot& slot : slots) {
    std::vector<Cell> row = {TimeCell(slot.start, context.Output()),
                             (slot.end - slot.start) / 3600.0};
    if (weighted) {
      for (Cell& figure : TimeWeighted(context.session, table, chosenNames, slot,
                                       options.stat == "integral"))
        row.push_back(std::move(figure));
    } else {
      std::vector<uint8_t> record = SlotStatistic(context.session, table, statistic, slot);
      for (size_t c : chosen) row.push_back(table.Value(record.data(), floatColumns[c]));
    }
    writer.Write(std::move(row));
  }
  writer.Finish();
}

}  // namespace

void AddStatCommands(CLI::App& app, Context& context) {
  Command stats = AddCommand<StatOptions>(
      app, context,
      {"stats",
       "Statistics of the float columns of a data table, computed by the database: over "
       "[--from, --to), or per hour of a --day, per day of a --month, per month of a --year of "
       "the local calendar (see --tz). A day on which the clocks change has 23 or 25 hourly "
       "slots; the hours column gives each slot's length",
       "scadastore --sqlite plant.db --tz Europe/Berlin stats samples --columns temp,flow --day "
       "2024-10-27 --stat max",
       "data table"},
      RunStats);
  StatOptions& options = stats.options;
  stats.app->add_option("--columns", options.columns,
                        "float columns to compute, by name and in this order; default: all");
  auto [from, to] = AddTimeRange(*stats.app, options.range);
  auto* day = stats.app->add_option("--day", options.day, "a local day, YYYY-MM-DD: hourly slots")
                  ->excludes(from)->excludes(to);
  auto* month =
      stats.app->add_option("--month", options.month, "a month, YYYY-MM: one slot per day")
          ->excludes(from)->excludes(to)->excludes(day);
  stats.app->add_option("--year", options.year, "a year, YYYY: one slot per month")
      ->excludes(from)->excludes(to)->excludes(day)->excludes(month);
  stats.app
      ->add_option("--stat", options.stat,
                   "max, min, avg or sum of the samples; or twa, the time-weighted average, "
                   "or integral, value x seconds: each sample holds until the next one, the "
                   "last one before a slot holds from the slot's start, and a NULL holds no "
                   "value (twa weighs only the seconds with one)")
      ->capture_default_str()
      ->check(CLI::IsMember({"max", "min", "avg", "sum", "twa", "integral"}));
}

}  // namespace scadastore::cli
