// The command families of the tool; each adds its subcommands to the app.
#pragma once

#include <cstdlib>
#include <cstring>
#include <functional>
#include <iostream>
#include <map>
#include <string>

#include <CLI/CLI.hpp>

#include "tools/cli/output.h"
#include "tools/cli/schema.h"
#include "tools/cli/session.h"

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

// A subcommand with its one-line description and an example in its help.
CLI::App* AddCommand(CLI::App& parent, const std::string& name, const std::string& description,
                     const std::string& example);

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
  std::string day, from, to, output, columns;
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
void AddSpoolCommand(CLI::App& app, Context& context);
void AddReportCommand(CLI::App& app, Context& context);

}  // namespace scadastore::cli
