// logs: list, add and count the entries of a log table.
#include <memory>

#include <fmt/format.h>

#include "tools/cli/command.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

struct ListOptions {
  std::string table;
  TimeRangeOptions range;
};

struct AddOptions {
  std::string command;  // "logs add" or "log", for its errors
  std::string table, time, source, info, operator_, monitor, verify, ack, batch;
  uint32_t type = 0, ms = 0, ip = 0;
};

void RunList(Context& context, const ListOptions& options) {
  Slot range = ParseTimeRange(options.range);
  LibraryBlock<LogRecord> records;
  context.session.Check(logGetLogByTime(context.session.Token(), options.table.c_str(),
                                        range.start, LastSecond(range), &records.data,
                                        &records.size),
                        "logs");
  context.Print(LogTable(records.data, records.count(), context.Output()));
}

void RunAdd(Context& context, const AddOptions& options) {
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
  session.Check(logSetLog(session.Token(), options.table.c_str(), &record, sizeof record),
                options.command);
  std::cout << logGetLastID(session.Token(), options.table.c_str()) << '\n';
}

void RunCount(Context& context, const ListOptions& options) {
  RequireTable(context, options.table, "");
  std::cout << logGetLogCount(context.session.Token(), options.table.c_str()) << '\n';
}

// "logs add TABLE ..." and its short form "log TABLE ...".
void AddLogEntryCommand(CLI::App& parent, const std::string& name, const std::string& example,
                        Context& context) {
  Command add = AddCommand<AddOptions>(
      parent, context,
      {name, "Store one log entry under a new id and print the id", example, "log table"}, RunAdd);
  AddOptions& options = add.options;
  options.command = parent.get_parent() ? parent.get_name() + " " + name : name;
  add.app->add_option("--type", options.type, "entry type")->required();
  add.app->add_option("--source", options.source, "where the entry comes from")->required();
  add.app->add_option("--info", options.info, "the entry's text")->required();
  add.app->add_option("--operator", options.operator_, "operator");
  add.app->add_option("--monitor", options.monitor, "monitor");
  add.app->add_option("--verify", options.verify, "verification");
  add.app->add_option("--ack", options.ack, "acknowledgement text");
  add.app->add_option("--batch", options.batch, "batch");
  add.app->add_option("--ip", options.ip, "IP address in numeric form");
  add.app->add_option("--time", options.time, "time of the entry (default: now)");
  add.app->add_option("--ms", options.ms, "milliseconds of the time");
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

  Command logs = AddCommand<ListOptions>(
      app, context,
      {"logs", "List the entries of a log table, or those of a time range",
       "scadastore --sqlite plant.db logs plant_log --from '2024-05-01 14:00' --to "
       "'2024-05-01 15:00'",
       "log table"},
      RunList);
  AddTimeRange(*logs.app, logs.options.range);

  AddLogEntryCommand(*logs.app, "add",
                     "scadastore --sqlite plant.db logs add plant_log --type 2 --source console "
                     "--info 'pump 3 started' --operator anna",
                     context);
  AddLogEntryCommand(app, "log",
                     "scadastore --sqlite plant.db log plant_log --type 2 --source console "
                     "--info 'pump 3 started'",
                     context);
  AddCommand<ListOptions>(*logs.app, context,
                          {"count", "Print the number of log entries",
                           "scadastore --sqlite plant.db logs count plant_log", "log table"},
                          RunCount);
}

}  // namespace scadastore::cli
