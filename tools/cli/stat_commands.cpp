// stats: the database's max, min, sum or average of the float columns over
// one interval, or per hour of a day, per day of a month, per month of a year.
#include <cmath>
#include <memory>

#include <fmt/format.h>

#include "tools/cli/commands.h"
#include "tools/cli/data_table.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

struct Arguments {
  std::string table, columns, from, to, day, month, stat = "avg";
  int year = 0;
};

// Slots prefilled with NaN, so that an interval without rows (whose values
// the library leaves as they were) prints as no value.
std::vector<uint8_t> NanSlots(const DataTable& table, size_t count) {
  std::vector<uint8_t> slots(count * table.recordSize(), 0);
  for (size_t s = 0; s < count; ++s)
    for (size_t c = 0; c < table.columns().size(); ++c)
      if (table.columns()[c].type == SCADASTORE_VALUE_FLOAT)
        table.SetFloat(slots.data() + s * table.recordSize(), c, std::nan(""));
  return slots;
}

ResultTable SlotTable(const DataTable& table, const std::vector<uint8_t>& slots,
                      const OutputOptions& options) {
  ResultTable result{{"time"}, {}};
  for (const Column& column : table.columns())
    if (column.type == SCADASTORE_VALUE_FLOAT) result.headers.push_back(column.name);
  for (size_t offset = 0; offset < slots.size(); offset += table.recordSize()) {
    const uint8_t* slot = slots.data() + offset;
    result.rows.push_back({TimeCell(LoadAt<uint32_t>(slot, 4), options)});
    for (size_t c = 0; c < table.columns().size(); ++c)
      if (table.columns()[c].type == SCADASTORE_VALUE_FLOAT)
        result.rows.back().push_back(table.Value(slot, c));
  }
  return result;
}

int32_t SignedTime(uint32_t seconds, const char* what) {
  if (seconds > INT32_MAX) throw CommandError(fmt::format("{}: the statistics stop at 2038", what));
  return static_cast<int32_t>(seconds);
}

std::vector<uint8_t> Compute(Context& context, const Arguments& arguments,
                             const DataTable& table) {
  CallerToken token = context.session.token();
  const DataTableInfo* info = table.info();
  uint32_t size = table.recordSize();
  if (!arguments.from.empty() || !arguments.to.empty()) {
    if (arguments.from.empty() || arguments.to.empty())
      throw CommandError("stats: give both --from and --to");
    int32_t from = SignedTime(ParseTime(arguments.from, "--from"), "--from");
    int32_t to = SignedTime(ParseTime(arguments.to, "--to"), "--to");
    if (from >= to) throw CommandError("stats: --from must be before --to");
    std::vector<uint8_t> slot = NanSlots(table, 1);
    Check(sgGetRecordStatValueOfInterval(token, info, ParseStatistic(arguments.stat), from, to,
                                         reinterpret_cast<DataRecord*>(slot.data()), size),
          "stats");
    return slot;
  }
  if (!arguments.day.empty()) {
    int year, month, day;
    char end;
    if (std::sscanf(arguments.day.c_str(), "%4d-%2d-%2d%c", &year, &month, &day, &end) != 3)
      throw CommandError(fmt::format("--day: '{}' is not YYYY-MM-DD", arguments.day));
    std::vector<uint8_t> slots = NanSlots(table, 24);
    Check(sgGetRecord_Day(token, info, 0, LocalStart(year, month, day), 0, 0, 0, slots.data(),
                          24 * size),
          "stats --day");
    return slots;
  }
  if (!arguments.month.empty()) {
    YearMonth month = ParseYearMonth(arguments.month);
    int days = DaysInMonth(month.year, month.month);
    std::vector<uint8_t> slots = NanSlots(table, days);
    Check(sgGetRecord_Month(token, info, 0, LocalStart(month.year, month.month, 1), 0, 0, days,
                            slots.data(), days * size),
          "stats --month");
    return slots;
  }
  if (arguments.year != 0) {
    std::vector<uint8_t> slots = NanSlots(table, 12);
    Check(sgGetRecord_Year(token, info, 0, LocalStart(arguments.year, 1, 1), arguments.year,
                           slots.data(), 12 * size),
          "stats --year");
    return slots;
  }
  throw CommandError("stats: give --from and --to, --day, --month or --year");
}

}  // namespace

void AddStatCommands(CLI::App& app, Context& context) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* stats = AddCommand(
      app, "stats",
      "Statistics of the float columns of a data table, computed by the database: over "
      "[--from, --to), or per hour of a --day, per day of a --month, per month of a --year "
      "(local calendar)",
      "scadastore --sqlite plant.db stats samples --columns temp,flow --day 2024-05-01 "
      "--stat max");
  stats->add_option("table", arguments->table, "data table")->required();
  stats->add_option("--columns", arguments->columns,
                    "value columns of the table, in order: name:float|int|text,...")
      ->required();
  auto* from = stats->add_option("--from", arguments->from, "start: local date-time or epoch seconds");
  auto* to = stats->add_option("--to", arguments->to, "end (excluded)");
  auto* day = stats->add_option("--day", arguments->day, "a local day, YYYY-MM-DD: 24 hourly slots")
                  ->excludes(from)->excludes(to);
  auto* month = stats->add_option("--month", arguments->month, "a month, YYYY-MM: one slot per day")
                    ->excludes(from)->excludes(to)->excludes(day);
  stats->add_option("--year", arguments->year, "a year, YYYY: one slot per month")
      ->excludes(from)->excludes(to)->excludes(day)->excludes(month);
  stats->add_option("--stat", arguments->stat, "max, min, avg or sum")
      ->capture_default_str()
      ->check(CLI::IsMember({"max", "min", "avg", "sum"}));
  stats->callback([&context, arguments] {
    DataTable table(arguments->table, ParseColumns(arguments->columns),
                    ParseStatistic(arguments->stat));
    context.session.Connect();
    context.Print(SlotTable(table, Compute(context, *arguments, table), context.Output()));
  });
}

}  // namespace scadastore::cli
