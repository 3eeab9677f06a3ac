// monitor: the receiving end of the library's error channel, in the tool.
#include "tools/cli/commands.h"
#include "tools/monitor_receiver.h"

namespace scadastore::cli {

void AddMonitorCommand(CLI::App& app, Context&) {
  CLI::App* monitor = AddCommand(
      app, "monitor",
      "Print the database error texts that programs using the library announce, until "
      "interrupted (the same as scadastore-monitor)",
      "scadastore monitor    # in one terminal, then run failing commands in another");
  monitor->callback([] {
    std::string error;
    if (!RunMonitor("monitor", stdout, error)) throw CommandError("monitor: " + error);
  });
}

}  // namespace scadastore::cli
