// retention: how long each alarm, log and data table keeps its rows, kept
// in a small table of the tool's own in the same database, and a run that
// applies every policy with purge's rules, for a scheduler to start daily.
#include <ctime>
#include <variant>

#include <fmt/format.h>

#include "tools/cli/command.h"

namespace scadastore::cli {
namespace {

// Not an alarm, log or data table by its columns: purge refuses it.
const char* const kPolicyTable = "scadastore_retention";

struct Policy {
  std::string table;
  int count;
  std::string unit;  // "days" or "months"
};

struct SetOptions {
  std::vector<std::string> tables;
  std::string keep;
};

struct RunOptions {
  uint32_t batch = 5000;
  bool dryRun = false;
};

// "90d" or "6m": a whole number of days or months, from 1.
Policy ParseKeep(const std::string& text) {
  size_t digits = text.find_first_not_of("0123456789");
  std::string unit = digits == std::string::npos ? "" : text.substr(digits);
  long count = digits == 0 || digits > 5 ? 0 : std::stol(text.substr(0, digits));
  if (count < 1 || (unit != "d" && unit != "m"))
    throw UsageError(fmt::format(
        "--keep '{}' is not a number of days or months from 1, as 90d or 6m", text));
  return {"", static_cast<int>(count), unit == "d" ? "days" : "months"};
}

// The first second to keep: now less the policy's days or months on the
// local calendar (a month back from the 31st ends on its month's last day).
uint32_t Cutoff(const Policy& policy, time_t now) {
  std::tm local;
  localtime_r(&now, &local);
  if (policy.unit == "days") {
    local.tm_mday -= policy.count;
  } else {
    int month = local.tm_year * 12 + local.tm_mon - policy.count;
    local.tm_year = month / 12;
    local.tm_mon = month % 12;
    std::tm last = local;
    last.tm_mon += 1;
    last.tm_mday = 0;  // the day before the next month's first
    last.tm_isdst = -1;
    std::mktime(&last);
    local.tm_mday = std::min(local.tm_mday, last.tm_mday);
  }
  local.tm_isdst = -1;
  time_t cutoff = std::mktime(&local);
  return cutoff < 0 ? 0 : static_cast<uint32_t>(cutoff);
}

bool HasPolicies(Session& session) { return TableExists(session, kPolicyTable); }

std::vector<Policy> ReadPolicies(Session& session) {
  std::vector<Policy> policies;
  if (!HasPolicies(session)) return policies;
  try {
    OdbcStatement statement = session.Database().Statement();
    statement.Execute(fmt::format("select {}, {}, {} from {} order by {}",
                                  session.Quote("tablename"), session.Quote("keepcount"),
                                  session.Quote("keepunit"), session.Quote(kPolicyTable),
                                  session.Quote("tablename")));
    while (statement.Fetch())
      policies.push_back({statement.Text(1).value_or(""),
                          std::stoi(statement.Text(2).value_or("0")),
                          statement.Text(3).value_or("")});
  } catch (const OdbcError& error) {
    throw CommandError(fmt::format("retention: reading {}: {}", kPolicyTable, error.what()));
  }
  return policies;
}

// Runs the statements in one transaction: all of them or none.
void Change(Session& session, const std::vector<std::pair<std::string, std::vector<std::string>>>& statements) {
  OdbcConnection& database = session.Database();
  try {
    database.BeginTransaction();
    for (const auto& [sql, texts] : statements) database.Statement().Execute(sql, texts);
    database.EndTransaction(true);
  } catch (const OdbcError& error) {
    try {
      database.EndTransaction(false);
    } catch (const OdbcError&) {
    }
    throw CommandError(fmt::format("retention: {}: {}", kPolicyTable, error.what()));
  }
}

void RunList(Context& context, const std::monostate&) {
  ResultTable result{{"table", "keep", "before"}, {}};
  time_t now = std::time(nullptr);
  for (const Policy& policy : ReadPolicies(context.session))
    result.rows.push_back({policy.table, fmt::format("{} {}", policy.count, policy.unit),
                           TimeCell(Cutoff(policy, now), context.Output())});
  context.Print(result);
}

void RunSet(Context& context, const SetOptions& options) {
  Session& session = context.session;
  Policy keep = ParseKeep(options.keep);
  for (const std::string& table : options.tables)
    if (ReadSchema(session, table).Kind() == "other")
      throw UsageError(fmt::format("retention: {} is not an alarm, log or data table", table));
  if (!HasPolicies(session)) {
    try {
      session.Database().Statement().Execute(fmt::format(
          "create table {} ({} varchar(255) not null primary key, {} integer not null, {} "
          "varchar(8) not null)",
          session.Quote(kPolicyTable), session.Quote("tablename"), session.Quote("keepcount"),
          session.Quote("keepunit")));
    } catch (const OdbcError& error) {
      throw CommandError(fmt::format("retention: creating {}: {}", kPolicyTable, error.what()));
    }
  }
  std::string remove = fmt::format("delete from {} where {} = ?", session.Quote(kPolicyTable),
                                   session.Quote("tablename"));
  std::string insert = fmt::format("insert into {} ({}, {}, {}) values (?, {}, ?)",
                                   session.Quote(kPolicyTable), session.Quote("tablename"),
                                   session.Quote("keepcount"), session.Quote("keepunit"),
                                   keep.count);
  std::vector<std::pair<std::string, std::vector<std::string>>> statements;
  for (const std::string& table : options.tables) {
    statements.push_back({remove, {table}});
    statements.push_back({insert, {table, keep.unit}});
  }
  Change(session, statements);
  for (const std::string& table : options.tables)
    std::cout << fmt::format("{} keeps {} {}\n", table, keep.count, keep.unit);
}

void RunRemove(Context& context, const SetOptions& options) {
  Session& session = context.session;
  if (!HasPolicies(session)) return;
  std::vector<std::pair<std::string, std::vector<std::string>>> statements;
  for (const std::string& table : options.tables)
    statements.push_back({fmt::format("delete from {} where {} = ?", session.Quote(kPolicyTable),
                                      session.Quote("tablename")),
                          {table}});
  Change(session, statements);
}

void RunRetention(Context& context, const RunOptions& options) {
  std::vector<PurgeTarget> targets;
  time_t now = std::time(nullptr);
  for (const Policy& policy : ReadPolicies(context.session))
    targets.push_back({policy.table, Cutoff(policy, now)});
  if (targets.empty()) {
    std::cout << "retention: no policies; set one with 'retention set TABLE --keep 90d'\n";
    return;
  }
  Purge(context, targets, options.batch, options.dryRun, true);
}

}  // namespace

void AddRetentionCommand(CLI::App& app, Context& context) {
  Command retention = AddCommand<std::monostate>(
      app, context,
      {"retention",
       "List how long each table keeps its rows, with the cut-off that a run would apply "
       "now; or set, remove and run these policies. They are kept in the table "
       "scadastore_retention of the same database",
       "scadastore --config 'plant;scada;secret;5' retention"},
      RunList);

  Command set = AddCommand<SetOptions>(
      *retention.app, context,
      {"set", "Keep the rows of these alarm, log or data tables for --keep days or months",
       "scadastore --config 'plant;scada;secret;5' retention set plant_alarms plant_log "
       "--keep 90d"},
      RunSet);
  set.app->add_option("table", set.options.tables, "alarm, log and data tables")->required();
  set.app
      ->add_option("--keep", set.options.keep,
                   "how long: days as 90d, months of the local calendar as 6m")
      ->required();

  Command remove = AddCommand<SetOptions>(
      *retention.app, context,
      {"remove", "Remove the policies of these tables; their rows stay",
       "scadastore --config 'plant;scada;secret;5' retention remove plant_log"},
      RunRemove);
  remove.app->add_option("table", remove.options.tables, "tables")->required();

  Command run = AddCommand<RunOptions>(
      *retention.app, context,
      {"run",
       "Apply every policy: remove the rows older than its cut-off with purge's rules "
       "(batches of --batch rows each committed on its own; alarms not confirmed or not "
       "recovered kept; Ctrl-C stops after a batch with exit 130). Exits 1 when a table is "
       "missing or the database refuses, so that a scheduler sees the failure",
       "scadastore --config 'plant;scada;secret;5' retention run"},
      RunRetention);
  run.app->add_option("--batch", run.options.batch, "rows per statement")->capture_default_str();
  run.app->add_flag("--dry-run", run.options.dryRun, "count what would go; remove nothing");
}

}  // namespace scadastore::cli
