// purge: removes the rows older than a cut-off from alarm, log and data
// tables in batches, each one statement committed on its own, so that no
// lock is held for long and an interruption leaves every other row as it
// was. Alarms that are not confirmed or not recovered are kept.
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>

#include <fmt/format.h>

#include "core/settings.h"
#include "tools/cli/command.h"
#include "tools/cli/output/progress.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

struct PurgeOptions {
  std::vector<std::string> tables;
  std::string before;
  uint32_t batch = 5000;
  bool dryRun = false;
};

// One table: which rows go, and how many there are.
struct PurgeTable {
  std::string name, kind, removable;  // removable: the where condition
  uint64_t older = 0, toRemove = 0, unconfirmed = 0, unrecovered = 0, removed = 0;
};

const char* TimeColumn(const std::string& kind) {
  if (kind == "alarm") return "arisetime";
  if (kind == "log") return "logtime";
  return "time";
}

uint64_t CountOf(const ResultTable& result, size_t column) {
  return result.rows.empty() ? 0 : CountCell(result.rows[0][column]);
}

// Every table is read and recognised before anything is removed.
std::vector<PurgeTable> Plan(Context& context, const PurgeOptions& options, uint32_t cutoff) {
  std::vector<PurgeTable> tables;
  for (const std::string& name : options.tables) {
    TableSchema schema = ReadSchema(context.session, name);
    std::string kind = schema.Kind();
    if (kind == "other")
      throw UsageError(fmt::format("purge: {} is not an alarm, log or data table (its columns: "
                                   "{}); nothing was removed",
                                   name, schema.ColumnList()));
    std::string older = fmt::format("{} < {}", TimeColumn(kind), cutoff);
    std::string removable = older;
    if (kind == "alarm")
      removable += " and coalesce(status, 0) <> 0 and coalesce(recovertime, 0) <> 0";
    tables.push_back({name, kind, removable});
  }
  for (PurgeTable& table : tables) {
    ResultTable counts = RunTextTableQuery(
        context, table.name.c_str(),
        fmt::format("select count(*) as older, sum(case when {} then 1 else 0 end) as removable{} "
                    "from {} where {} < {}",
                    table.removable,
                    table.kind == "alarm"
                        ? ", sum(case when coalesce(status, 0) = 0 then 1 else 0 end) as "
                          "unconfirmed, sum(case when coalesce(recovertime, 0) = 0 then 1 "
                          "else 0 end) as unrecovered"
                        : "",
                    context.session.Quote(table.name), TimeColumn(table.kind), cutoff),
        nullptr);
    table.older = CountOf(counts, 0);
    table.toRemove = CountOf(counts, 1);
    if (table.kind == "alarm") {
      table.unconfirmed = CountOf(counts, 2);
      table.unrecovered = CountOf(counts, 3);
    }
  }
  return tables;
}

// One batch: at most `batch` rows in one statement.
std::string BatchDelete(const Session& session, const PurgeTable& table, uint32_t batch) {
  std::string quoted = session.Quote(table.name);
  if (LimitsDeleteItself(session.kind()))
    return fmt::format("delete from {} where {} limit {}", quoted, table.removable, batch);
  return fmt::format("delete from {0} where id in (select id from {0} where {1} limit {2})",
                     quoted, table.removable, batch);
}

// Removes batch after batch until one comes back short; false when
// interrupted. Without a terminal a line per second tells the progress.
bool Remove(Context& context, PurgeTable& table, uint32_t batch) {
  std::string sql = BatchDelete(context.session, table, batch);
  Progress progress("purge " + table.name, table.toRemove);
  auto lastLine = std::chrono::steady_clock::time_point{};
  for (;;) {
    if (Session::Interrupted()) return false;
    int64_t removed = 0;
    try {
      OdbcStatement statement = context.session.Database().Statement();
      statement.Execute(sql);
      removed = statement.RowCount();
    } catch (const OdbcError& error) {
      throw CommandError(fmt::format("purge {}: {} rows removed, then the database refused: {}",
                                     table.name, table.removed, error.what()));
    }
    table.removed += static_cast<uint64_t>(std::max<int64_t>(removed, 0));
    progress.Update(std::min(table.removed, table.toRemove));
    auto now = std::chrono::steady_clock::now();
    if (!isatty(STDERR_FILENO) && now - lastLine >= std::chrono::seconds(1)) {
      std::cerr << fmt::format("purge {}: {} of {} rows removed\n", table.name, table.removed,
                               table.toRemove);
      lastLine = now;
    }
    if (removed < batch) return true;
  }
}

void RunPurge(Context& context, const PurgeOptions& options) {
  if (options.batch == 0) throw UsageError("purge: --batch must be at least 1");
  uint32_t cutoff = ParseTime(options.before, "--before");
  std::vector<PurgeTable> tables = Plan(context, options, cutoff);

  bool finished = true;
  if (!options.dryRun) {
    context.session.DeferInterrupts(true);
    for (PurgeTable& table : tables)
      if (finished) finished = Remove(context, table, options.batch);
    context.session.DeferInterrupts(false);
  }

  ResultTable result{{"table", "kind", "older", options.dryRun ? "would_remove" : "removed",
                      "kept", "unconfirmed", "unrecovered"},
                     {}};
  for (const PurgeTable& table : tables) {
    uint64_t removed = options.dryRun ? table.toRemove : table.removed;
    bool alarm = table.kind == "alarm";
    result.rows.push_back({table.name, table.kind, table.older, removed,
                           table.older - std::min(removed, table.older),
                           alarm ? Cell(table.unconfirmed) : Cell(),
                           alarm ? Cell(table.unrecovered) : Cell()});
  }
  context.Print(result);
  if (!finished) {
    context.exitCode = 130;
    std::cerr << "scadastore: purge interrupted; the rows not removed are intact, and the same "
                 "command finishes the job\n";
  }
}

}  // namespace

void AddPurgeCommand(CLI::App& app, Context& context) {
  Command purge = AddCommand<PurgeOptions>(
      app, context,
      {"purge",
       "Remove the rows older than --before from alarm, log and data tables (by arisetime, "
       "logtime or time), in batches of --batch rows, each one statement committed on its own, "
       "so that writers wait for one batch at most. Alarms that are not confirmed (status 0) "
       "or not recovered are kept. A table of another kind is refused (exit 2) before anything "
       "is removed. Ctrl-C stops after the running batch (exit 130) and leaves every row not "
       "yet removed as it was; the same command then finishes. Prints per table the older "
       "rows, those removed and those kept, with the unconfirmed and unrecovered alarms among "
       "them",
       "scadastore --sqlite plant.db purge --before 2024-01-01 --dry-run plant_alarms "
       "plant_log plant"},
      RunPurge);
  PurgeOptions& options = purge.options;
  purge.app->add_option("table", options.tables, "alarm, log and data tables")->required();
  purge.app
      ->add_option("--before", options.before,
                   "cut-off: rows before this local date-time or epoch second go")
      ->required();
  purge.app->add_option("--batch", options.batch, "rows per statement")->capture_default_str();
  purge.app->add_flag("--dry-run", options.dryRun,
                      "count what would go and what stays; remove nothing");
}

}  // namespace scadastore::cli
