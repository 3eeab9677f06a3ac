// `spool status` and `spool forward`: what the spool of the settings text
// (its option spool=DIR) holds, and forwarding it for a host that is stopped.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <thread>

#include <fmt/format.h>

#include "core/spool_journal.h"
#include "platform/spool_file.h"
#include "tools/cli/command.h"
#include "tools/cli/output/progress.h"

namespace scadastore::cli {
namespace {

// The directory of the option spool=DIR after the kind.
std::string SpoolDirectory(const Session& session) {
  const std::string& config = session.options.config;
  size_t field = 0;
  for (int semicolons = 0; semicolons < 4 && field != std::string::npos; ++semicolons)
    field = config.find(';', field == 0 && semicolons == 0 ? 0 : field + 1);
  while (field != std::string::npos) {
    const size_t end = config.find(';', field + 1);
    const std::string option = config.substr(field + 1, end - field - 1);
    if (option.rfind("spool=", 0) == 0 && option.size() > 6) return option.substr(6);
    field = end;
  }
  throw UsageError("spool: --config must carry the option spool=DIR after the kind");
}

struct TableWaiting {
  uint64_t writes = 0, records = 0, bytes = 0;
  uint32_t oldest = 0;
};

struct SpoolState {
  std::map<std::string, TableWaiting> tables;
  std::vector<uint64_t> sequences;
  std::vector<AsideEntry> aside;
};

SpoolState ReadState(const std::string& directory) {
  SpoolState state;
  std::string error;
  const bool read = ReadSpoolDirectory(
      directory,
      [&](uint64_t sequence, const KeptWrite& write) {
        TableWaiting& table = state.tables[write.TableName()];
        ++table.writes;
        table.records += write.RecordCount();
        table.bytes += write.records.size();
        if (table.oldest == 0) table.oldest = write.keptAt;
        state.sequences.push_back(sequence);
      },
      [&](const AsideEntry& entry) { state.aside.push_back(entry); }, error);
  if (!read) throw CommandError("spool: " + error);
  return state;
}

struct SpoolOptions {};

void RunStatus(Context& context, const SpoolOptions&) {
  const std::string directory = SpoolDirectory(context.session);
  const SpoolState state = ReadState(directory);
  const OutputOptions options = context.Output();
  ResultTable waiting{{"table", "writes", "records", "bytes", "oldest"}, {}};
  for (const auto& [name, table] : state.tables)
    waiting.rows.push_back(
        {name, table.writes, table.records, table.bytes, TimeCell(table.oldest, options)});
  ResultTable aside{{"set_aside", "reason"}, {}};
  for (const AsideEntry& entry : state.aside) aside.rows.push_back({entry.key, entry.reason});
  if (options.format == Format::Json) {
    // One document: {"waiting": [...], "set_aside": [...]}.
    std::cout << "{\"waiting\": ";
    context.Print(waiting);
    std::cout << ", \"set_aside\": ";
    context.Print(aside);
    std::cout << "}\n";
  } else {
    if (state.tables.empty()) std::cout << "empty\n";
    if (!state.tables.empty()) context.Print(waiting);
    if (!state.aside.empty()) context.Print(aside);
  }
  context.exitCode = state.tables.empty() ? 0 : 1;
}

// Each call of an export forwards for a slice of time before its own work;
// the count of the library's own table is the cheapest such call.
void RunForward(Context& context, const SpoolOptions&) {
  const std::string directory = SpoolDirectory(context.session);
  {
    DirectoryLock probe;  // the library takes it itself below
    std::string error;
    if (!probe.Take(directory, error)) throw CommandError("spool forward: " + error);
  }
  const SpoolState before = ReadState(directory);
  Progress progress("forward " + directory, before.sequences.size());
  CallerToken token = context.session.Token();
  context.session.DeferInterrupts(true);
  size_t left = before.sequences.size(), stalled = 0;
  while (left > 0 && stalled < 10 && !Session::Interrupted()) {
    almGetAlarmCount(token, "scadastore_spool");
    const size_t now = ReadState(directory).sequences.size();
    stalled = now < left ? 0 : stalled + 1;
    if (now >= left) std::this_thread::sleep_for(std::chrono::milliseconds(300));
    left = now;
    progress.Update(before.sequences.size() - std::min(left, before.sequences.size()));
  }
  context.session.DeferInterrupts(false);
  progress.Finish();
  std::cout << fmt::format("forwarded {} writes, {} waiting\n",
                           before.sequences.size() - std::min(left, before.sequences.size()),
                           left);
  if (left > 0 && !Session::Interrupted())
    std::cerr << "scadastore: spool forward: the database took nothing for 3 s: "
              << dbGetLastError() << '\n';
  context.exitCode = left == 0 ? 0 : Session::Interrupted() ? 130 : 1;
}

}  // namespace

void AddSpoolCommand(CLI::App& app, Context& context) {
  const std::string config = "scadastore --config 'plant;scada;secret;5;spool=/var/lib/host/spool' ";
  CLI::App* spool = AddSubcommand(
      app, {"spool",
            "The store-and-forward spool of the settings text's option spool=DIR: writes kept "
            "while the database was away",
            config + "spool status"});
  spool->require_subcommand(1);
  AddCommand<SpoolOptions>(
      *spool, context,
      {"status",
       "What waits: per table the writes, records, bytes and the oldest; then the set-aside "
       "entries with their reasons (under --format json one object of the two lists, "
       "\"waiting\" and \"set_aside\"). Prints 'empty' and exits 0 when nothing waits, exits 1 "
       "otherwise",
       config + "spool status --format json"},
      RunStatus);
  AddCommand<SpoolOptions>(
      *spool, context,
      {"forward",
       "Forward what waits to the database, each write exactly once, for a host that is "
       "stopped (a running host holds the spool and forwards it itself). Ctrl-C stops between "
       "two batches (exit 130). Exits 0 only when the spool is empty at the end",
       config + "spool forward"},
      RunForward);
}

}  // namespace scadastore::cli
