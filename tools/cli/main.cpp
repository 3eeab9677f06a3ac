// scadastore: see, check and move the history kept by libscadastore.
#include <iostream>

#include "tools/cli/command.h"
#include "tools/cli/times.h"

using namespace scadastore::cli;

int main(int argc, char** argv) {
  Context context;
  CLI::App app{
      "scadastore: alarms, logs and samples of a supervisory host, kept by libscadastore.\n"
      "Connect with --sqlite FILE (the embedded default) or --config 'DSN;user;password;kind'.",
      "scadastore"};
  app.set_version_flag("--version", "scadastore " SCADASTORE_VERSION);
  app.require_subcommand(1);
  app.fallthrough();  // global options may follow the command
  app.footer(
      "\nExamples:\n"
      "  scadastore --sqlite build/demo.db demo\n"
      "  scadastore --sqlite build/demo.db alarms plant_alarms --level 2 --format json\n"
      "  scadastore --config 'plant;scada;secret;5' records count samples\n"
      "Run 'scadastore COMMAND --help' for a command's options.");

  ConnectionOptions& connection = context.session.options;
  auto* config = app.add_option("--config", connection.config,
                                "the library's settings text 'DSN;user;password;kind' for a data "
                                "source declared in odbc.ini; its options (login=SECONDS, "
                                "timeout=SECONDS) may follow the kind. The tool pools its "
                                "connections");
  app.add_option("--sqlite", connection.sqlite,
                 "SQLite database file, created when missing; the tool declares a private data "
                 "source for it (busy time-out 10 s, WAL journal)")
      ->excludes(config);
  app.add_option("--kind", connection.sqliteKind,
                 "database kind under --sqlite. Default 3: bracket quoting, which SQLite reads "
                 "only as identifiers, and multi-row inserts, so import and demo write in "
                 "batches; kinds 1 and 6 write one row per call")
      ->check(CLI::Range(1, 6));
  app.add_option("--format", context.formatName,
                 "output: table, csv or json (default: table on a terminal, csv otherwise)")
      ->check(CLI::IsMember({"table", "csv", "json"}));
  app.add_flag("--epoch", context.epoch,
               "print times as seconds since 1970 instead of local date-times");
  app.add_option("--tz", "local times (input, output and the calendar of stats) in this time "
                         "zone, e.g. Europe/Berlin; default: the process's zone (TZ)")
      ->each(UseTimeZone);

  AddTableCommands(app, context);
  AddAlarmCommands(app, context);
  AddLogCommands(app, context);
  AddRecordCommands(app, context);
  AddStatCommands(app, context);
  AddSqlCommand(app, context);
  AddMonitorCommand(app, context);
  AddDemoCommand(app, context);
  AddPurgeCommand(app, context);
  AddReportCommand(app, context);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : 2;
  } catch (const CommandError& error) {
    std::cout.flush();
    std::cerr << "scadastore: " << error.what() << '\n';
    return dynamic_cast<const UsageError*>(&error) ? 2 : 1;
  }
  return context.exitCode;
}
