#include "tools/cli/command.h"

#include <cmath>

#include <fmt/format.h>

namespace scadastore::cli {

std::map<std::string, EnsureFunction>& EnsureKinds() {
  static std::map<std::string, EnsureFunction> kinds;
  return kinds;
}

CLI::App* AddSubcommand(CLI::App& parent, const CommandHelp& help) {
  CLI::App* command = parent.add_subcommand(help.name, help.description);
  command->footer("\nExample:\n  " + help.example);
  return command;
}

void RequireTableArgument(const CommandHelp& help) {
  throw UsageError(fmt::format("{}: name the {}", help.name, help.table));
}

TimeRangeFlags AddTimeRange(CLI::App& command, TimeRangeOptions& range) {
  return {command.add_option("--from", range.from,
                             "start of the range, included: a local date-time or epoch seconds"),
          command.add_option("--to", range.to,
                             "end of the range, excluded: [--from, --to), so that one day "
                             "ends where the next starts")};
}

Slot ParseTimeRange(const TimeRangeOptions& range) {
  Slot slot{range.from.empty() ? 0 : ParseTime(range.from, "--from"),
            range.to.empty() ? UINT32_MAX : ParseTime(range.to, "--to")};
  if (slot.start >= slot.end) throw UsageError("--from must be before --to");
  return slot;
}

Slot ParseBoundedTimeRange(const TimeRangeOptions& range) {
  if (range.from.empty() || range.to.empty()) throw UsageError("give both --from and --to");
  return ParseTimeRange(range);
}

void RequireTable(Context& context, const std::string& table, const std::string& detail) {
  if (!TableExists(context.session, table))
    throw CommandError(fmt::format("table {} does not exist{}{}", table, detail.empty() ? "" : ": ",
                                   detail));
}

ResultTable RunTextTableQuery(Context& context, const char* table, const std::string& sql,
                              const char* timeColumns) {
  uint32_t rows = 0, fields = 0, textLength = 0;
  LibraryBlock<uint32_t> offsets;
  LibraryBlock<char> text;
  context.session.Check(sgGetRecordBySQL(context.session.Token(), table, sql.c_str(), timeColumns,
                                         &rows, &fields, &offsets.data, &text.data, &textLength),
                        "sgGetRecordBySQL");
  ResultTable result;
  for (uint32_t r = 0; text.data != nullptr && r <= rows; ++r) {
    std::vector<Cell> cells;
    for (uint32_t f = 0; f < fields; ++f) cells.push_back(text.data + offsets.data[r * fields + f]);
    if (r == 0) {
      for (const Cell& cell : cells) result.headers.push_back(cell);
    } else {
      result.rows.push_back(std::move(cells));
    }
  }
  return result;
}

uint64_t CountCell(const Cell& cell) {
  std::string text = CellText(cell);
  return text.empty() ? 0 : static_cast<uint64_t>(std::llround(std::stod(text)));
}

}  // namespace scadastore::cli
