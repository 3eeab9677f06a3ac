// scadastore-monitor: prints the database error texts that scadastore hosts deliver.
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <ctime>

#include "tools/monitor_receiver.h"

namespace {

volatile sig_atomic_t stopping = 0;

void RequestStop(int) { stopping = 1; }

void PrintUsage() {
  std::puts(
      "Usage: scadastore-monitor\n"
      "\n"
      "Receives the database error texts that processes using libscadastore\n"
      "announce, and prints each with a time stamp, until SIGINT or SIGTERM.\n"
      "It creates the shared-memory block /message_mem, publishes its pid\n"
      "there and listens on /tmp/message_mem.<pid>; both are removed on exit.\n"
      "Only one monitor can be published at a time.");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc > 1) {
    PrintUsage();
    return std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0 ? 0 : 2;
  }
  struct sigaction action {};
  action.sa_handler = RequestStop;
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);

  scadastore::MonitorReceiver receiver;
  std::string error;
  if (!receiver.Start(static_cast<uint64_t>(getpid()), error)) {
    std::fprintf(stderr, "scadastore-monitor: %s\n", error.c_str());
    return 1;
  }
  std::printf("scadastore-monitor: listening as %d\n", static_cast<int>(getpid()));
  std::fflush(stdout);
  while (!stopping) {
    scadastore::MonitorDelivery delivery;
    if (!receiver.Receive(250, delivery)) continue;
    timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    std::tm local;
    localtime_r(&now.tv_sec, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    std::printf("%s.%03ld [%u/%u] %s\n", stamp, now.tv_nsec / 1000000, delivery.message,
                delivery.wParam, delivery.text.c_str());
    std::fflush(stdout);
  }
  receiver.Stop();
  return 0;
}
