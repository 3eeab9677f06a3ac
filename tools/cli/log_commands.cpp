// logs: list, add and count the entries of a log table.
#include <memory>

#include <fmt/format.h>

#include "tools/cli/commands.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

struct ListOptions {
  std::string table, from, to;
};

struct AddOptions {
  std::string table, time, source, info, operator_, monitor, verify, ack, batch;
  uint32_t type = 0, ms = 0, ip = 0;
};

void RunList(Context& context, const ListOptions& options) {
  uint32_t from = options.from.empty() ? 0 : ParseTime(options.from, "--from");
  uint32_t to = options.to.empty() ? UINT32_MAX : ParseTime(options.to, "--to");
  if (from >= to) throw UsageError("logs: --from must be before --to");
  LibraryBlock<LogRecord> records;
  context.session.Check(logGetLogByTime(context.session.Token(), options.table.c_str(), from, to,
                                        &records.data, &records.size),
                        "logs");
  context.Print(LogTable(records.data, records.count(), context.Output()));
}

void RunAdd(Context& context, const AddOptions& options, const std::string& command) {
  LogRecord record{};
  record.logtime = ParseTimeOrNow(options.time, "--time");
  record.millisecond = options.ms;
  record.logtype = options.type;
  record.ip = options.ip;
  CopyText(record.source, options.source, "--source");
  CopyText(record.loginfo, options.info, "--info");
  CopyText(record.operator_, options.operator_, "--operator");
  CopyText(record.monitor, options.monitor, "--monitor");
  CopyText(record.logverify, options.verify, "--verify");
  CopyText(record.ackinfo, options.ack, "--ack");
  CopyText(record.batch, options.batch, "--batch");
  Session& session = context.session;
  session.Check(logSetLog(session.Token(), options.table.c_str(), &record, sizeof record), command);
  std::cout << logGetLastID(session.Token(), options.table.c_str()) << '\n';
}

void RunCount(Context& context, const ListOptions& options) {
  RequireTable(context, options.table, "");
  std::cout << logGetLogCount(context.session.Token(), options.table.c_str()) << '\n';
}

// "logs add TABLE ..." and its short form "log TABLE ...".
void AddLogEntryCommand(CLI::App& parent, const std::string& name, const std::string& example,
                        Context& context) {
  auto add = std::make_shared<AddOptions>();
  CLI::App* adding = AddCommand(parent, name, "Store one log entry under a new id and print the id",
                                example);
  adding->add_option("table", add->table, "log table")->required();
  adding->add_option("--type", add->type, "entry type")->required();
  adding->add_option("--source", add->source, "where the entry comes from")->required();
  adding->add_option("--info", add->info, "the entry's text")->required();
  adding->add_option("--operator", add->operator_, "operator");
  adding->add_option("--monitor", add->monitor, "monitor");
  adding->add_option("--verify", add->verify, "verification");
  adding->add_option("--ack", add->ack, "acknowledgement text");
  adding->add_option("--batch", add->batch, "batch");
  adding->add_option("--ip", add->ip, "IP address in numeric form");
  adding->add_option("--time", add->time, "time of the entry (default: now)");
  adding->add_option("--ms", add->ms, "milliseconds of the time");
  adding->callback([&context, add, name] { RunAdd(context, *add, name); });
}

}  // namespace

ResultTable LogTable(const LogRecord* records, size_t count, const OutputOptions& options) {
  ResultTable table{{"id", "time", "ms", "type", "source", "info", "operator", "monitor",
                     "verify", "ip", "ackinfo", "batch"},
                    {}};
  for (size_t i = 0; i < count; ++i) {
    LogRecord record;
    std::memcpy(&record, records + i, sizeof record);
    // Fields of the packed record are read by value, never bound to references.
    uint32_t id = record.id, millisecond = record.millisecond, type = record.logtype,
             ip = record.ip;
    table.rows.push_back({id, TimeCell(record.logtime, options), millisecond, type,
                          record.source, record.loginfo, record.operator_, record.monitor,
                          record.logverify, ip, record.ackinfo, record.batch});
  }
  return table;
}

void AddLogCommands(CLI::App& app, Context& context) {
  EnsureKinds()["log"] = [](Context& context, const std::string& table, const std::string&) {
    context.session.Check(logEnsureTableExist(context.session.Token(), table.c_str()),
                          "ensure log");
  };

  auto list = std::make_shared<ListOptions>();
  CLI::App* logs = AddCommand(app, "logs",
                              "List the entries of a log table, or those of a time range",
                              "scadastore --sqlite plant.db logs plant_log --from "
                              "'2024-05-01 14:00' --to '2024-05-01 15:00'");
  logs->add_option("table", list->table, "log table");
  logs->add_option("--from", list->from, "earliest time: local date-time or epoch seconds");
  logs->add_option("--to", list->to, "latest time (included)");
  logs->callback([&context, logs, list] {
    if (!logs->get_subcommands().empty()) return;
    if (list->table.empty()) throw UsageError("logs: name the log table");
    RunList(context, *list);
  });

  AddLogEntryCommand(*logs, "add",
                     "scadastore --sqlite plant.db logs add plant_log --type 2 --source console "
                     "--info 'pump 3 started' --operator anna",
                     context);
  AddLogEntryCommand(app, "log",
                     "scadastore --sqlite plant.db log plant_log --type 2 --source console "
                     "--info 'pump 3 started'",
                     context);

  auto count = std::make_shared<ListOptions>();
  CLI::App* counting = AddCommand(*logs, "count", "Print the number of log entries",
                                  "scadastore --sqlite plant.db logs count plant_log");
  counting->add_option("table", count->table, "log table")->required();
  counting->callback([&context, count] { RunCount(context, *count); });
}

}  // namespace scadastore::cli
