// alarms: list, add, ack, recover and count the alarms of an alarm table.
#include <ctime>
#include <memory>

#include <fmt/format.h>

#include "tools/cli/commands.h"
#include "tools/cli/data_table.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

struct ListArguments {
  std::string table, from, to;
  unsigned level = 0;
  std::vector<int32_t> types;
  std::vector<std::string> stations, tags, points;
  unsigned first = 0;
};

// One AlarmQuery: the head, then the four lists back to back.
std::vector<uint8_t> BuildQuery(const ListArguments& arguments) {
  int lists = !arguments.types.empty() + !arguments.stations.empty() + !arguments.points.empty();
  if (lists > 1)
    throw CommandError("alarms: choose one of --type, --station (with --tag) and --point");
  if (!arguments.tags.empty() && arguments.stations.size() != 1)
    throw CommandError("alarms: --tag needs exactly one --station");
  if (arguments.level > 255) throw CommandError("alarms: --level must be 0 to 255");

  AlarmQuery head{};
  head.startTime = arguments.from.empty() ? 0 : ParseTime(arguments.from, "--from");
  head.endTime = arguments.to.empty() ? UINT32_MAX : ParseTime(arguments.to, "--to");
  head.filter = arguments.level << 8;
  if (!arguments.types.empty()) head.filter |= SCADASTORE_FILTER_ALARM_TYPES;
  else if (!arguments.tags.empty()) head.filter |= SCADASTORE_FILTER_STATION_TAGS;
  else if (!arguments.stations.empty()) head.filter |= SCADASTORE_FILTER_STATIONS;
  else if (!arguments.points.empty()) head.filter |= SCADASTORE_FILTER_POINTS;
  head.typeCount = static_cast<uint32_t>(arguments.types.size());
  head.stationCount = static_cast<uint32_t>(arguments.stations.size());
  head.tagCount = static_cast<uint32_t>(arguments.tags.size());
  head.pointCount = static_cast<uint32_t>(arguments.points.size());

  std::vector<uint8_t> query(sizeof head);
  std::memcpy(query.data(), &head, sizeof head);
  auto append = [&query](const void* bytes, size_t size) {
    const auto* begin = static_cast<const uint8_t*>(bytes);
    query.insert(query.end(), begin, begin + size);
  };
  for (int32_t type : arguments.types) append(&type, sizeof type);
  for (const auto* names : {&arguments.stations, &arguments.tags})
    for (const std::string& name : *names) {
      char field[32] = {};
      CopyText(field, name, names == &arguments.tags ? "tag" : "station");
      append(field, sizeof field);
    }
  for (const std::string& point : arguments.points) {
    PointKey key{};
    size_t first = point.find('/'), second = point.rfind('/');
    if (first == second || first == std::string::npos)
      throw CommandError(fmt::format("--point '{}' is not STATION/TAG/TAGTYPE", point));
    CopyText(key.station, point.substr(0, first), "station");
    CopyText(key.tag, point.substr(first + 1, second - first - 1), "tag");
    char* end = nullptr;
    unsigned long tagtype = std::strtoul(point.c_str() + second + 1, &end, 10);
    if (*end != '\0' || end == point.c_str() + second + 1 || tagtype > 65535)
      throw CommandError(fmt::format("--point '{}': the tag type must be 0 to 65535", point));
    key.tagtype = static_cast<uint16_t>(tagtype);
    append(&key, sizeof key);
  }
  return query;
}


void List(Context& context, const ListArguments& arguments) {
  CallerToken token = context.session.Token();
  const char* table = arguments.table.c_str();
  if (arguments.first > 0) {
    std::vector<AlarmRecord> records(arguments.first);
    context.session.Check(almGetAllAlarm(token, table, records.data(),
                         static_cast<uint32_t>(records.size() * sizeof(AlarmRecord))),
          "alarms");
    size_t count = 0;
    while (count < records.size() && records[count].id != 0) ++count;
    context.Print(AlarmTable(records.data(), count, context.Output()));
    return;
  }
  std::vector<uint8_t> query = BuildQuery(arguments);
  LibraryBlock<AlarmRecord> records;
  context.session.Check(almGetAlarmByQuery(token, table,
                                           reinterpret_cast<const AlarmQuery*>(query.data()),
                                           &records.data, &records.size),
                        "alarms");
  context.Print(AlarmTable(records.data, records.count(), context.Output()));
}

}  // namespace

ResultTable AlarmTable(const AlarmRecord* records, size_t count, const OutputOptions& options) {
  ResultTable table{{"id", "station", "tag", "tagtype", "value", "type", "level", "arisetime",
                     "ms", "status", "recovertime", "ip", "description", "batch"},
                    {}};
  for (size_t i = 0; i < count; ++i) {
    AlarmRecord record;
    std::memcpy(&record, records + i, sizeof record);
    // Under tag type 4 the value is a one-byte flag.
    Cell value = record.tagtype == 4
                     ? Cell(LoadAt<uint8_t>(reinterpret_cast<const uint8_t*>(&record), 72))
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

  auto list = std::make_shared<ListArguments>();
  CLI::App* alarms = AddCommand(
      app, "alarms",
      "List the alarms of an alarm table (all, or those a query selects), or run a "
      "subcommand",
      "scadastore --sqlite plant.db alarms plant_alarms --from '2024-05-01 08:00' "
      "--to '2024-05-01 12:00' --level 2 --station north");
  alarms->add_option("table", list->table, "alarm table");
  alarms->add_option("--from", list->from, "earliest arise time: local date-time or epoch seconds");
  alarms->add_option("--to", list->to, "latest arise time (included)");
  alarms->add_option("--level", list->level, "minimum alarm level, 1 to 255");
  alarms->add_option("--type", list->types, "alarm types to select");
  alarms->add_option("--station", list->stations, "stations to select");
  alarms->add_option("--tag", list->tags, "tags to select, of the single --station");
  alarms->add_option("--point", list->points, "points to select, as STATION/TAG/TAGTYPE");
  alarms->add_option("--first", list->first,
                     "the first N alarms in id order instead of a query")
      ->excludes("--from", "--to", "--level", "--type", "--station", "--tag", "--point");
  alarms->callback([&context, alarms, list] {
    if (!alarms->get_subcommands().empty()) return;
    if (list->table.empty()) throw CommandError("alarms: name the alarm table");
    List(context, *list);
  });

  auto record = std::make_shared<AlarmRecord>();
  auto text = std::make_shared<std::map<std::string, std::string>>();
  auto table = std::make_shared<std::string>();
  auto value = std::make_shared<double>(0);
  CLI::App* add = AddCommand(*alarms, "add", "Store one alarm under a new id and print the id",
                             "scadastore --sqlite plant.db alarms add plant_alarms --station north "
                             "--tag temp --value 81.5 --type 1 --level 2 --description 'high'");
  add->add_option("table", *table, "alarm table")->required();
  add->add_option("--station", (*text)["station"], "station")->required();
  add->add_option("--tag", (*text)["tag"], "tag")->required();
  add->add_option("--value", *value, "the tag's value (0 or 1 under --tagtype 4)");
  add->add_option("--tagtype", record->tagtype, "tag type; 4 carries the value as a flag");
  add->add_option("--type", record->alarmtype, "alarm type");
  add->add_option("--level", record->alarmlevel, "alarm level");
  add->add_option("--time", (*text)["time"], "arise time (default: now)");
  add->add_option("--ms", record->millisecond, "milliseconds of the arise time");
  add->add_option("--ip", record->ip, "IP address in numeric form");
  add->add_option("--description", (*text)["description"], "message");
  add->add_option("--batch", (*text)["batch"], "batch");
  add->callback([&context, record, text, table, value] {
    CopyText(record->station, (*text)["station"], "--station");
    CopyText(record->tag, (*text)["tag"], "--tag");
    CopyText(record->description, (*text)["description"], "--description");
    CopyText(record->batch, (*text)["batch"], "--batch");
    record->arisetime = (*text)["time"].empty() ? static_cast<uint32_t>(std::time(nullptr))
                                                : ParseTime((*text)["time"], "--time");
    record->value = *value;
    if (record->tagtype == 4) {
      uint8_t flag = *value != 0;
      record->value = 0;
      StoreAt(reinterpret_cast<uint8_t*>(record.get()), 72, flag);
    }
    context.session.Check(almSetAlarm(context.session.Token(), table->c_str(), record.get(), sizeof *record),
          "alarms add");
    std::cout << almGetLastID(context.session.Token(), table->c_str()) << '\n';
  });

  auto id = std::make_shared<uint32_t>(0);
  auto status = std::make_shared<uint32_t>(1);
  CLI::App* ack = AddCommand(*alarms, "ack", "Confirm an alarm: set its status",
                             "scadastore --sqlite plant.db alarms ack plant_alarms 17");
  ack->add_option("table", *table, "alarm table")->required();
  ack->add_option("id", *id, "alarm id")->required();
  ack->add_option("--status", *status, "status to set; 0 means not confirmed")
      ->capture_default_str();
  ack->callback([&context, table, id, status] {
    context.session.Check(almConfirmAlarm(context.session.Token(), table->c_str(), *id, *status), "alarms ack");
  });

  auto time = std::make_shared<std::string>();
  CLI::App* recover = AddCommand(*alarms, "recover", "Set the time an alarm's condition ended",
                                 "scadastore --sqlite plant.db alarms recover plant_alarms 17 "
                                 "--time '2024-05-01 08:42:10'");
  recover->add_option("table", *table, "alarm table")->required();
  recover->add_option("id", *id, "alarm id")->required();
  recover->add_option("--time", *time, "recovery time (default: now)");
  recover->callback([&context, table, id, time] {
    uint32_t when = time->empty() ? static_cast<uint32_t>(std::time(nullptr))
                                  : ParseTime(*time, "--time");
    context.session.Check(almSetRecoverAlarm(context.session.Token(), table->c_str(), *id, when),
          "alarms recover");
  });

  CLI::App* count = AddCommand(*alarms, "count", "Print the number of alarms",
                               "scadastore --sqlite plant.db alarms count plant_alarms");
  count->add_option("table", *table, "alarm table")->required();
  count->callback([&context, table] {
    RequireTable(context, *table, "");
    std::cout << almGetAlarmCount(context.session.Token(), table->c_str()) << '\n';
  });
}

}  // namespace scadastore::cli
