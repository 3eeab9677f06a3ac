// monitor: the receiving end of the library's error channel, in the tool.
#include <variant>

#include "tools/cli/command.h"
#include "tools/monitor_receiver.h"

namespace scadastore::cli {

namespace {

void RunMonitorCommand(Context&, const std::monostate&) {
  std::string error;
  if (!RunMonitor("monitor", stdout, error)) throw CommandError("monitor: " + error);
}

}  // namespace

void AddMonitorCommand(CLI::App& app, Context& context) {
  AddCommand<std::monostate>(
      app, context,
      {"monitor",
       "Print the database error texts that programs using the library announce, until "
       "interrupted (the same as scadastore-monitor)",
       "scadastore monitor    # in one terminal, then run failing commands in another"},
      RunMonitorCommand);
}

}  // namespace scadastore::cli
