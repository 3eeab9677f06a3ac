// What every command of the tool shares: the context it runs in, how it
// is registered, its time range, and the library's blocks and text tables.
#pragma once

#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/cli/output/output.h"
#include "tools/cli/database/schema.h"
#include "tools/cli/database/session.h"
#include "tools/cli/times.h"

namespace scadastore::cli {

struct Context {
  Session session;
  std::string formatName;  // empty: table on a terminal, CSV otherwise
  bool epoch = false;
  int exitCode = 0;

  OutputOptions Output() const {
    return {formatName.empty() ? DefaultFormat() : ParseFormat(formatName), epoch};
  }
  void Print(const ResultTable& table) const { cli::Print(table, Output(), std::cout); }
};

// `ensure KIND TABLE` creates a table of one family; the families register
// their kinds so that the command knows only those that are built in.
using EnsureFunction = std::function<void(Context&, const std::string& table,
                                          const std::string& columns)>;
std::map<std::string, EnsureFunction>& EnsureKinds();

// What `--help` shows of a command, and its table argument.
struct CommandHelp {
  std::string name, description, example;
  std::string table = "";  // what the positional TABLE is, e.g. "alarm table"; "": none
};

// A registered command: its CLI11 node, for its own options, and the
// options struct that the parser fills and `run` reads.
template <typename Options>
struct Command {
  CLI::App* app;
  Options& options;
};

CLI::App* AddSubcommand(CLI::App& parent, const CommandHelp& help);
[[noreturn]] void RequireTableArgument(const CommandHelp& help);

// Registers a command of `parent`: `run` runs when the command is chosen
// and none of its subcommands is. With `help.table`, Options has a `table`
// that the first positional argument fills; it must be given.
template <typename Options>
Command<Options> AddCommand(CLI::App& parent, Context& context, const CommandHelp& help,
                            void (*run)(Context&, const Options&)) {
  auto options = std::make_shared<Options>();
  CLI::App* app = AddSubcommand(parent, help);
  if constexpr (requires { options->table.c_str(); })
    if (!help.table.empty()) app->add_option("table", options->table, help.table);
  app->callback([&context, app, options, run, help] {
    if (!app->get_subcommands().empty()) return;
    if constexpr (requires { options->table.c_str(); })
      if (!help.table.empty() && options->table.empty()) RequireTableArgument(help);
    run(context, *options);
  });
  return {app, *options};
}

// --from and --to of every command that takes a time range. The range is
// half-open, [from, to): --from is included and --to excluded, so that
// ranges such as one day and the next meet without overlap.
struct TimeRangeOptions {
  std::string from, to;
};
struct TimeRangeFlags {
  CLI::Option *from, *to;
};
TimeRangeFlags AddTimeRange(CLI::App& command, TimeRangeOptions& range);
// The range in seconds: from 1970 without --from, to the end of time
// without --to; a UsageError unless --from is before --to.
Slot ParseTimeRange(const TimeRangeOptions& range);
// As ParseTimeRange, both --from and --to given.
Slot ParseBoundedTimeRange(const TimeRangeOptions& range);
// The last second of a range, for the library's calls that include their end.
inline uint32_t LastSecond(const Slot& range) {
  return range.end == UINT32_MAX ? UINT32_MAX : range.end - 1;
}

// Copies a text into a fixed field, refusing what would not fit.
template <size_t N>
void CopyText(char (&field)[N], const std::string& text, const char* what) {
  if (text.size() >= N)
    throw CommandError(what + std::string(" '") + text + "' is longer than " +
                       std::to_string(N - 1) + " bytes");
  std::memcpy(field, text.data(), text.size());
  field[text.size()] = '\0';
}

// Checks that a table of this name exists now; throws with `detail` if not.
void RequireTable(Context& context, const std::string& table, const std::string& detail);

// A block that the library hands out from malloc, freed on scope exit.
template <typename T>
struct LibraryBlock {
  T* data = nullptr;
  uint32_t size = 0;  // bytes
  LibraryBlock() = default;
  LibraryBlock(const LibraryBlock&) = delete;
  LibraryBlock& operator=(const LibraryBlock&) = delete;
  ~LibraryBlock() { std::free(data); }
  size_t count() const { return size / sizeof(T); }
};

// The text table of sgGetRecordBySQL: row 0 holds the headers.
ResultTable RunTextTableQuery(Context& context, const char* table, const std::string& sql,
                              const char* timeColumns);
// A count or sum among its cells, which may read "3" or "3.0"; a sum over
// no rows reads "" and is 0.
uint64_t CountCell(const Cell& cell);

// Alarm and log records as result rows.
ResultTable AlarmTable(const AlarmRecord* records, size_t count, const OutputOptions& options);
ResultTable LogTable(const LogRecord* records, size_t count, const OutputOptions& options);

// What `report` writes, also at the demo's end.
struct ReportOptions {
  std::string day, output, columns;
  TimeRangeOptions range;
  std::vector<std::string> tables, units;  // units: COLUMN=UNIT
  size_t logRows = 500;
};
void WriteReport(Context& context, const ReportOptions& options);

void AddTableCommands(CLI::App& app, Context& context);
void AddAlarmCommands(CLI::App& app, Context& context);
void AddLogCommands(CLI::App& app, Context& context);
void AddRecordCommands(CLI::App& app, Context& context);
void AddStatCommands(CLI::App& app, Context& context);
void AddSqlCommand(CLI::App& app, Context& context);
void AddMonitorCommand(CLI::App& app, Context& context);
void AddDemoCommand(CLI::App& app, Context& context);
void AddPurgeCommand(CLI::App& app, Context& context);
void AddReportCommand(CLI::App& app, Context& context);

}  // namespace scadastore::cli
