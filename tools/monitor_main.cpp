// scadastore-monitor: prints the database error texts that scadastore hosts deliver.
#include <cstdio>
#include <cstring>

#include "include/scadastore.h"
#include "tools/monitor_receiver.h"

namespace {

void PrintUsage() {
  std::puts(
      "Usage: scadastore-monitor [--version]\n"
      "\n"
      "Receives the database error texts that processes using libscadastore\n"
      "announce, and prints each with a time stamp, until SIGINT or SIGTERM.\n"
      "It creates the shared-memory block /message_mem, publishes its pid\n"
      "there and listens on /tmp/message_mem.<pid>; both are removed on exit.\n"
      "Only one monitor can be published at a time.");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::puts("scadastore-monitor " SCADASTORE_VERSION);
    return 0;
  }
  if (argc > 1) {
    PrintUsage();
    return std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0 ? 0 : 2;
  }
  std::string error;
  if (!scadastore::RunMonitor("scadastore-monitor", stdout, error)) {
    std::fprintf(stderr, "scadastore-monitor: %s\n", error.c_str());
    return 1;
  }
  return 0;
}
