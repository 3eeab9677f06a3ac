// `spool status` and `spool forward`: what the spool of the settings text
// (its option spool=DIR) holds, and forwarding it for a host that is stopped.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <optional>
#include <thread>

#include <fmt/format.h>

#include "core/settings.h"
#include "core/spool_journal.h"
#include "core/spool_statements.h"
#include "platform/spool_file.h"
#include "tools/cli/command.h"
#include "tools/cli/output/progress.h"

namespace scadastore::cli {
namespace {

// The settings of --config, which must carry the option spool=DIR.
ConnectionSettings SpoolSettings(const Session& session) {
  ConnectionSettings settings;
  if (!ParseSettings(session.options.config.c_str(), settings))
    throw UsageError("spool: the settings text of --config was refused (an option with a bad value?)");
  if (settings.spoolDirectory.empty())
    throw UsageError("spool: --config must carry the option spool=DIR after the kind");
  return settings;
}

// The spool's sequence number in the database: every write up to it was
// forwarded, also where a full disk kept the journal from saying so. One
// connection serves every question, opened again after a failure.
class ForwardedInDatabase {
 public:
  explicit ForwardedInDatabase(const ConnectionSettings& settings) : settings_(settings) {
    std::ifstream idFile(settings.spoolDirectory + "/id");
    std::getline(idFile, spoolId_);
  }

  // Empty with the reason when the database does not answer.
  std::optional<uint64_t> Read(std::string& why) {
    if (spoolId_.empty()) return uint64_t{0};  // a spool that never opened
    try {
      if (!db_) db_.emplace(settings_.dsn, settings_.user, settings_.password);
      const Statement select = ForwardedSequenceSelect(DialectOf(settings_.kind), spoolId_);
      OdbcStatement query = db_->Statement();
      query.Execute(select.Sent(), select.texts);
      const std::optional<std::string> forwarded = query.Fetch() ? query.Text(1) : std::nullopt;
      return forwarded ? std::stoull(*forwarded) : 0;
    } catch (const std::exception& error) {
      db_.reset();
      why = error.what();
      return std::nullopt;
    }
  }

 private:
  const ConnectionSettings& settings_;
  std::string spoolId_;
  std::optional<OdbcConnection> db_;
};

struct TableWaiting {
  uint64_t writes = 0, records = 0, bytes = 0;
  uint32_t oldest = 0;
};

struct SpoolState {
  std::map<std::string, TableWaiting> tables;
  std::vector<uint64_t> sequences;
  std::vector<AsideEntry> aside;
};

// What waits after the writes up to `forwarded`.
SpoolState ReadState(const std::string& directory, uint64_t forwarded) {
  SpoolState state;
  std::string error;
  const bool read = ReadSpoolDirectory(
      directory,
      [&](uint64_t sequence, const KeptWrite& write) {
        if (sequence <= forwarded) return;
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

// What waits, as the journal and the database tell it together; without
// the database's word, as the journal tells it, which a note says.
SpoolState WaitingState(const ConnectionSettings& settings, ForwardedInDatabase& database) {
  std::string why;
  const std::optional<uint64_t> forwarded = database.Read(why);
  if (!forwarded)
    std::cerr << "scadastore: spool: the database could not say what it took (" << why
              << "), so writes it took while the spool's disk was full may be listed\n";
  return ReadState(settings.spoolDirectory, forwarded.value_or(0));
}

void RunStatus(Context& context, const SpoolOptions&) {
  const ConnectionSettings settings = SpoolSettings(context.session);
  ForwardedInDatabase database(settings);
  const SpoolState state = WaitingState(settings, database);
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
  const ConnectionSettings settings = SpoolSettings(context.session);
  const std::string& directory = settings.spoolDirectory;
  {
    DirectoryLock probe;  // the library takes it itself below
    std::string error;
    if (!probe.Take(directory, error)) throw CommandError("spool forward: " + error);
  }
  ForwardedInDatabase database(settings);
  const SpoolState before = WaitingState(settings, database);
  Progress progress("forward " + directory, before.sequences.size());
  CallerToken token = context.session.Token();
  context.session.DeferInterrupts(true);
  size_t left = before.sequences.size(), stalled = 0;
  while (left > 0 && stalled < 10 && !Session::Interrupted()) {
    almGetAlarmCount(token, "scadastore_spool");
    std::string why;
    const uint64_t forwarded = database.Read(why).value_or(0);
    const size_t now = ReadState(directory, forwarded).sequences.size();
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
       "What waits: per table the writes, records, bytes and the oldest, leaving out what the "
       "database says it took (which a full disk may keep the journal from saying); then the "
       "set-aside "
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
