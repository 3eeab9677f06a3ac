// monitor: the receiving end of the library's error channel, in the tool.
#include <signal.h>
#include <unistd.h>

#include <ctime>

#include <fmt/format.h>

#include "tools/cli/commands.h"
#include "tools/monitor_receiver.h"

namespace scadastore::cli {
namespace {

volatile sig_atomic_t stopping = 0;

void RequestStop(int) { stopping = 1; }

std::string Now() {
  timespec now;
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm local;
  localtime_r(&now.tv_sec, &local);
  char stamp[32];
  std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  return fmt::format("{}.{:03}", stamp, now.tv_nsec / 1000000);
}

}  // namespace

void AddMonitorCommand(CLI::App& app, Context&) {
  CLI::App* monitor = AddCommand(
      app, "monitor",
      "Print the database error texts that programs using the library announce, until "
      "interrupted (the same as scadastore-monitor)",
      "scadastore monitor    # in one terminal, then run failing commands in another");
  monitor->callback([] {
    struct sigaction action {};
    action.sa_handler = RequestStop;
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    MonitorReceiver receiver;
    std::string error;
    if (!receiver.Start(static_cast<uint64_t>(getpid()), error))
      throw CommandError("monitor: " + error);
    std::cout << fmt::format("monitor: listening as {}", getpid()) << std::endl;
    while (!stopping) {
      MonitorDelivery delivery;
      if (receiver.Receive(250, delivery))
        std::cout << fmt::format("{} {}", Now(), delivery.text) << std::endl;
    }
  });
}

}  // namespace scadastore::cli
