// alarms: list, add, ack, recover and count the alarms of an alarm table.
#include <memory>

#include <fmt/format.h>

#include "tools/cli/commands/alarm_kpi.h"
#include "tools/cli/command.h"
#include "tools/cli/database/data_table.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

struct ListOptions {
  std::string table;
  TimeRangeOptions range;
  unsigned level = 0;
  std::vector<int32_t> types;
  std::vector<std::string> stations, tags, points;
  unsigned first = 0;
};

struct AddOptions {
  std::string table, station, tag, time, description, batch;
  double value = 0;
  uint32_t tagtype = 0, type = 0, level = 0, ms = 0, ip = 0;
};

// ack, recover and count: one alarm (or the table) and what to set.
struct ChangeOptions {
  std::string table, time;
  uint32_t id = 0, status = 1;
};

// One AlarmQuery: the head, then the four lists back to back.
std::vector<uint8_t> BuildQuery(const ListOptions& options) {
  int lists = !options.types.empty() + !options.stations.empty() + !options.points.empty();
  if (lists > 1)
    throw UsageError("alarms: choose one of --type, --station (with --tag) and --point");
  if (!options.tags.empty() && options.stations.size() != 1)
    throw UsageError("alarms: --tag needs exactly one --station");
  if (options.level > 255) throw UsageError("alarms: --level must be 0 to 255");

  AlarmQuery head{};
  Slot range = ParseTimeRange(options.range);
  head.startTime = range.start;
  head.endTime = LastSecond(range);
  head.filter = options.level << 8;
  if (!options.types.empty()) head.filter |= SCADASTORE_FILTER_ALARM_TYPES;
  else if (!options.tags.empty()) head.filter |= SCADASTORE_FILTER_STATION_TAGS;
  else if (!options.stations.empty()) head.filter |= SCADASTORE_FILTER_STATIONS;
  else if (!options.points.empty()) head.filter |= SCADASTORE_FILTER_POINTS;
  head.typeCount = static_cast<uint32_t>(options.types.size());
  head.stationCount = static_cast<uint32_t>(options.stations.size());
  head.tagCount = static_cast<uint32_t>(options.tags.size());
  head.pointCount = static_cast<uint32_t>(options.points.size());

  std::vector<uint8_t> query(sizeof head);
  std::memcpy(query.data(), &head, sizeof head);
  auto append = [&query](const void* bytes, size_t size) {
    const auto* begin = static_cast<const uint8_t*>(bytes);
    query.insert(query.end(), begin, begin + size);
  };
  for (int32_t type : options.types) append(&type, sizeof type);
  for (const auto* names : {&options.stations, &options.tags})
    for (const std::string& name : *names) {
      char field[32] = {};
      CopyText(field, name, names == &options.tags ? "tag" : "station");
      append(field, sizeof field);
    }
  for (const std::string& point : options.points) {
    PointKey key{};
    size_t first = point.find('/'), second = point.rfind('/');
    if (first == second || first == std::string::npos)
      throw UsageError(fmt::format("--point '{}' is not STATION/TAG/TAGTYPE", point));
    CopyText(key.station, point.substr(0, first), "station");
    CopyText(key.tag, point.substr(first + 1, second - first - 1), "tag");
    char* end = nullptr;
    unsigned long tagtype = std::strtoul(point.c_str() + second + 1, &end, 10);
    if (*end != '\0' || end == point.c_str() + second + 1 || tagtype > 65535)
      throw UsageError(fmt::format("--point '{}': the tag type must be 0 to 65535", point));
    key.tagtype = static_cast<uint16_t>(tagtype);
    append(&key, sizeof key);
  }
  return query;
}

void RunList(Context& context, const ListOptions& options) {
  CallerToken token = context.session.Token();
  const char* table = options.table.c_str();
  if (options.first > 0) {
    std::vector<AlarmRecord> records(options.first);
    context.session.Check(almGetAllAlarm(token, table, records.data(),
                                         static_cast<uint32_t>(records.size() * sizeof(AlarmRecord))),
                          "alarms");
    size_t count = 0;
    while (count < records.size() && records[count].id != 0) ++count;
    context.Print(AlarmTable(records.data(), count, context.Output()));
    return;
  }
  std::vector<uint8_t> query = BuildQuery(options);
  LibraryBlock<AlarmRecord> records;
  context.session.Check(almGetAlarmByQuery(token, table,
                                           reinterpret_cast<const AlarmQuery*>(query.data()),
                                           &records.data, &records.size),
                        "alarms");
  context.Print(AlarmTable(records.data, records.count(), context.Output()));
}

void RunAdd(Context& context, const AddOptions& options) {
  AlarmRecord record{};
  CopyText(record.station, options.station, "--station");
  CopyText(record.tag, options.tag, "--tag");
  CopyText(record.description, options.description, "--description");
  CopyText(record.batch, options.batch, "--batch");
  record.arisetime = ParseTimeOrNow(options.time, "--time");
  record.millisecond = options.ms;
  record.tagtype = options.tagtype;
  record.alarmtype = options.type;
  record.alarmlevel = options.level;
  record.ip = options.ip;
  record.value = options.value;
  if (options.tagtype == SCADASTORE_TAGTYPE_FLAG) {
    record.value = 0;
    StoreAt(reinterpret_cast<uint8_t*>(&record), SCADASTORE_FLAG_OFFSET,
            static_cast<uint8_t>(options.value != 0));
  }
  Session& session = context.session;
  session.Check(almSetAlarm(session.Token(), options.table.c_str(), &record, sizeof record),
                "alarms add");
  std::cout << almGetLastID(session.Token(), options.table.c_str()) << '\n';
}

void RunAck(Context& context, const ChangeOptions& options) {
  context.session.Check(almConfirmAlarm(context.session.Token(), options.table.c_str(),
                                        options.id, options.status),
                        "alarms ack");
}

void RunRecover(Context& context, const ChangeOptions& options) {
  context.session.Check(almSetRecoverAlarm(context.session.Token(), options.table.c_str(),
                                           options.id, ParseTimeOrNow(options.time, "--time")),
                        "alarms recover");
}

void RunCount(Context& context, const ChangeOptions& options) {
  RequireTable(context, options.table, "");
  std::cout << almGetAlarmCount(context.session.Token(), options.table.c_str()) << '\n';
}

void RunKpi(Context& context, const ListOptions& options) {
  Slot range = ParseBoundedTimeRange(options.range);
  PrintKpi(ComputeAlarmKpi(context, options.table, range.start, range.end), context.Output(),
           std::cout);
}

}  // namespace

ResultTable AlarmTable(const AlarmRecord* records, size_t count, const OutputOptions& options) {
  ResultTable table{{"id", "station", "tag", "tagtype", "value", "type", "level", "arisetime",
                     "ms", "status", "recovertime", "ip", "description", "batch"},
                    {}};
  for (size_t i = 0; i < count; ++i) {
    AlarmRecord record;
    std::memcpy(&record, records + i, sizeof record);
    Cell value = record.tagtype == SCADASTORE_TAGTYPE_FLAG
                     ? Cell(LoadAt<uint8_t>(reinterpret_cast<const uint8_t*>(&record),
                                            SCADASTORE_FLAG_OFFSET))
                     : Cell(static_cast<double>(record.value));
    table.rows.push_back({record.id, record.station, record.tag, record.tagtype, value,
                          record.alarmtype, record.alarmlevel,
                          TimeCell(record.arisetime, options), record.millisecond,
                          record.status,
                          record.recovertime ? TimeCell(record.recovertime, options) : Cell(),
                          record.ip, record.description, record.batch});
  }
  return table;
}

void AddAlarmCommands(CLI::App& app, Context& context) {
  EnsureKinds()["alarm"] = [](Context& context, const std::string& table, const std::string&) {
    context.session.Check(almEnsureTableExist(context.session.Token(), table.c_str()),
                          "ensure alarm");
  };

  Command alarms = AddCommand<ListOptions>(
      app, context,
      {"alarms",
       "List the alarms of an alarm table (all, or those a query selects), or run a "
       "subcommand",
       "scadastore --sqlite plant.db alarms plant_alarms --from '2024-05-01 08:00' "
       "--to '2024-05-01 12:00' --level 2 --station north",
       "alarm table"},
      RunList);
  ListOptions& list = alarms.options;
  TimeRangeFlags range = AddTimeRange(*alarms.app, list.range);
  alarms.app->add_option("--level", list.level, "minimum alarm level, 1 to 255");
  alarms.app->add_option("--type", list.types, "alarm types to select");
  alarms.app->add_option("--station", list.stations, "stations to select");
  alarms.app->add_option("--tag", list.tags, "tags to select, of the single --station");
  alarms.app->add_option("--point", list.points, "points to select, as STATION/TAG/TAGTYPE");
  alarms.app
      ->add_option("--first", list.first, "the first N alarms in id order instead of a query")
      ->excludes(range.from)->excludes(range.to)
      ->excludes("--level", "--type", "--station", "--tag", "--point");

  Command add = AddCommand<AddOptions>(
      *alarms.app, context,
      {"add", "Store one alarm under a new id and print the id",
       "scadastore --sqlite plant.db alarms add plant_alarms --station north --tag temp "
       "--value 81.5 --type 1 --level 2 --description 'high'",
       "alarm table"},
      RunAdd);
  CLI::App& adding = *add.app;
  adding.add_option("--station", add.options.station, "station")->required();
  adding.add_option("--tag", add.options.tag, "tag")->required();
  adding.add_option("--value", add.options.value, "the tag's value (0 or 1 under --tagtype 4)");
  adding.add_option("--tagtype", add.options.tagtype, "tag type; 4 carries the value as a flag");
  adding.add_option("--type", add.options.type, "alarm type");
  adding.add_option("--level", add.options.level, "alarm level");
  adding.add_option("--time", add.options.time, "arise time (default: now)");
  adding.add_option("--ms", add.options.ms, "milliseconds of the arise time");
  adding.add_option("--ip", add.options.ip, "IP address in numeric form");
  adding.add_option("--description", add.options.description, "message");
  adding.add_option("--batch", add.options.batch, "batch");

  Command ack = AddCommand<ChangeOptions>(
      *alarms.app, context,
      {"ack", "Confirm an alarm: set its status",
       "scadastore --sqlite plant.db alarms ack plant_alarms 17", "alarm table"},
      RunAck);
  ack.app->add_option("id", ack.options.id, "alarm id")->required();
  ack.app->add_option("--status", ack.options.status, "status to set; 0 means not confirmed")
      ->capture_default_str();

  Command recover = AddCommand<ChangeOptions>(
      *alarms.app, context,
      {"recover", "Set the time an alarm's condition ended",
       "scadastore --sqlite plant.db alarms recover plant_alarms 17 --time '2024-05-01 08:42:10'",
       "alarm table"},
      RunRecover);
  recover.app->add_option("id", recover.options.id, "alarm id")->required();
  recover.app->add_option("--time", recover.options.time, "recovery time (default: now)");

  AddCommand<ChangeOptions>(*alarms.app, context,
                            {"count", "Print the number of alarms",
                             "scadastore --sqlite plant.db alarms count plant_alarms",
                             "alarm table"},
                            RunCount);

  Command kpi = AddCommand<ListOptions>(
      *alarms.app, context,
      {"kpi",
       "Alarm-management figures of the alarms arising in [--from, --to), each computed by the "
       "database over the time range. stations, per station and for (all): alarms; per_10min, "
       "the average per 10-minute window, windows aligned to --from (the last may be shorter); "
       "peak_10min and peak_start, the most alarms in one window and the first such window; "
       "flood_pct, the share of windows with more than 10 alarms; standing, alarms not "
       "recovered by --to and raised more than 24 h before it (looked for from --from or 30 "
       "days before --to, whichever is earlier); unconfirmed, the period's alarms of status 0. "
       "points: the ten points (station/tag) with the most alarms and their share of all. "
       "chattering: points with three alarms within 60 s; chattering counts each alarm that "
       "arises less than 60 s after the point's alarm two before it. levels: alarms per level "
       "and their share of the station's alarms",
       "scadastore --sqlite plant.db alarms kpi plant_alarms --from 2024-05-01 --to 2024-05-02",
       "alarm table"},
      RunKpi);
  AddTimeRange(*kpi.app, kpi.options.range);
}

}  // namespace scadastore::cli
