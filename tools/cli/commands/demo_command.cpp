// demo: a small plant of 4 stations x 8 tags plays one day of 1-second
// samples into the store, raises, confirms and recovers alarms, writes the
// operators' log, then reports what the library reads back.
#include <chrono>
#include <cmath>
#include <ctime>
#include <memory>
#include <numbers>
#include <random>

#include <fmt/format.h>

#include "tools/cli/command.h"
#include "tools/cli/database/data_table.h"
#include "tools/cli/output/progress.h"
#include "tools/cli/commands/record_writer.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

const char* const kStations[] = {"north", "south", "east", "west"};
constexpr int kStationCount = 4;
constexpr int kTagCount = 8;
constexpr uint32_t kDay = 86400;
const char* const kSamples = "plant";
const char* const kAlarms = "plant_alarms";
const char* const kLog = "plant_log";

struct TagModel {
  const char* name;
  const char* unit;
  double base;
  double swing;  // daily amplitude; the limits stand at 1.25 swings
};
const TagModel kTags[kTagCount] = {
    {"temp", "C", 60, 8},        {"press", "bar", 6, 0.8},   {"flow", "m3/h", 120, 30},
    {"level", "%", 55, 15},      {"speed", "rpm", 1450, 60}, {"current", "A", 42, 6},
    {"voltage", "V", 400, 4},    {"power", "kW", 85, 20}};

// A disturbance: a raised-cosine bump on one tag.
struct Bump {
  uint32_t start, length;
  double height;
};

struct Alarm {
  uint32_t id = 0;
  int point = 0;  // station * kTagCount + tag
  bool high = true;
  uint32_t arise = 0, recover = 0, confirm = 0;  // seconds of the day; 0: not (yet)
  bool recoveryStored = false;
  double value = 0;
};

class Plant {
 public:
  explicit Plant(uint32_t dayStart) : dayStart_(dayStart) {
    std::mt19937 random(20240501);
    std::uniform_real_distribution<double> unit(0, 1);
    for (int p = 0; p < kStationCount * kTagCount; ++p) {
      phase_[p] = unit(random) * 2 * std::numbers::pi;
      for (int b = static_cast<int>(unit(random) * 4); b > 0; --b)
        bumps_[p].push_back({static_cast<uint32_t>(unit(random) * (kDay - 3600)),
                             static_cast<uint32_t>(180 + unit(random) * 2400),
                             (unit(random) < 0.5 ? -1 : 1) * (0.7 + unit(random) * 0.8)});
    }
  }

  double Value(int point, uint32_t second) const {
    const TagModel& tag = kTags[point % kTagCount];
    double daily = 0.9 * std::sin(2 * std::numbers::pi * second / kDay + phase_[point]);
    // Deterministic noise, so that a replay gives the same day.
    double noise = 0.03 * std::sin(second * 12.9898 + point * 78.233);
    double bump = 0;
    for (const Bump& b : bumps_[point])
      if (second >= b.start && second < b.start + b.length)
        bump += b.height * 0.5 * (1 - std::cos(2 * std::numbers::pi * (second - b.start) / b.length));
    return tag.base + tag.swing * (daily + noise + bump);
  }

  uint32_t dayStart() const { return dayStart_; }

 private:
  uint32_t dayStart_;
  double phase_[kStationCount * kTagCount];
  std::vector<Bump> bumps_[kStationCount * kTagCount];
};

std::string PointName(int point) {
  return fmt::format("{}/{}", kStations[point / kTagCount], kTags[point % kTagCount].name);
}

LogRecord LogEntry(uint32_t time, uint32_t type, const std::string& source,
                   const std::string& info, const std::string& operator_) {
  LogRecord record{};
  record.logtime = time;
  record.logtype = type;
  CopyText(record.source, source, "source");
  CopyText(record.loginfo, info, "info");
  CopyText(record.operator_, operator_, "operator");
  CopyText(record.monitor, "demo", "monitor");
  return record;
}

const char* Operator(uint32_t secondOfDay) {
  static const char* const shifts[] = {"kim", "anna", "omar", "kim"};  // 22-06, 06-14, 14-22
  return shifts[(secondOfDay + 2 * 3600) / (8 * 3600)];
}

// Plays the day: samples in batches; alarms and log entries as they happen.
class Recorder {
 public:
  Recorder(Context& context, const Plant& plant, const DataTable& table)
      : context_(context), plant_(plant), table_(table) {}

  void Play() {
    size_t perBatch = RecordsPerBatch(table_);
    Progress progress("writing samples", kDay);
    std::vector<uint8_t> batch;
    for (uint32_t from = 0; from < kDay; from += perBatch) {
      uint32_t to = std::min<uint32_t>(kDay, from + perBatch);
      batch.assign((to - from) * table_.recordSize(), 0);
      for (uint32_t second = from; second < to; ++second) {
        uint8_t* record = batch.data() + (second - from) * table_.recordSize();
        StoreAt(record, offsetof(DataRecord, time), plant_.dayStart() + second);
        for (int point = 0; point < kStationCount * kTagCount; ++point) {
          double value = plant_.Value(point, second);
          table_.SetFloat(record, point, value);
          Watch(point, second, value);
        }
      }
      for (uint32_t shift : {6u, 14u, 22u})
        if (shift * 3600 >= from && shift * 3600 < to)
          log_.push_back(LogEntry(plant_.dayStart() + shift * 3600, 1, "shift",
                                  fmt::format("shift handed over to {}", Operator(shift * 3600)),
                                  Operator(shift * 3600)));
      StoreRecords(context_.session, table_, batch.data(), to - from, progress, from);
      ++batches_;
      Flush(to);
    }
    progress.Finish();
    Flush(UINT32_MAX);
  }

  const std::vector<Alarm>& alarms() const { return alarms_; }
  size_t logEntries() const { return logWritten_; }
  size_t confirmed() const { return confirmed_; }
  size_t batches() const { return batches_; }
  // The hour (second of the day) with the most log entries.
  uint32_t BusiestHour() const {
    std::vector<int> perHour(24);
    for (uint32_t time : logTimes_) ++perHour[(time - plant_.dayStart()) / 3600 % 24];
    return static_cast<uint32_t>(std::max_element(perHour.begin(), perHour.end()) -
                                 perHour.begin()) * 3600;
  }

 private:
  // Raises an alarm when a value leaves its limits; the condition recovers
  // a tenth of a swing back inside, so noise does not make it chatter.
  void Watch(int point, uint32_t second, double value) {
    const TagModel& tag = kTags[point % kTagCount];
    double high = tag.base + 1.25 * tag.swing, low = tag.base - 1.25 * tag.swing;
    int& active = active_[point];  // index + 1 of the open alarm
    if (active == 0 && (value > high || value < low)) {
      Alarm alarm;
      alarm.point = point;
      alarm.high = value > high;
      alarm.arise = second;
      alarm.value = value;
      // Four alarms in five are confirmed, 1 to 15 minutes after they rise.
      if (alarms_.size() % 5 != 4) alarm.confirm = second + 60 + (alarms_.size() * 97) % 840;
      alarms_.push_back(alarm);
      raised_.push_back(alarms_.size() - 1);
      active = static_cast<int>(alarms_.size());
    } else if (active != 0) {
      Alarm& alarm = alarms_[active - 1];
      if (alarm.high ? value < high - 0.1 * tag.swing : value > low + 0.1 * tag.swing) {
        alarm.recover = second;
        active = 0;
      }
    }
  }

  // Stores the alarms raised so far, then the confirmations and recoveries
  // that happened before `until`, then the log entries.
  void Flush(uint32_t until) {
    CallerToken token = context_.session.Token();
    if (!raised_.empty()) {
      std::vector<AlarmRecord> records;
      uint32_t next = almGetLastID(token, kAlarms) + 1;
      for (size_t index : raised_) {
        Alarm& alarm = alarms_[index];
        alarm.id = next++;
        records.push_back(Record(alarm));
        log_.push_back(LogEntry(plant_.dayStart() + alarm.arise, 3, "alarm",
                                fmt::format("alarm {} raised: {}", alarm.id, Describe(alarm)), ""));
      }
      context_.session.Check(almSetAlarm(token, kAlarms, records.data(),
                        static_cast<uint32_t>(records.size() * sizeof(AlarmRecord))),
            "demo: storing alarms");
      raised_.clear();
    }
    for (Alarm& alarm : alarms_) {
      if (alarm.id == 0) continue;
      if (alarm.confirm != 0 && alarm.confirm < until) {
        uint32_t when = std::min(alarm.confirm, kDay - 1);
        context_.session.Check(almConfirmAlarm(token, kAlarms, alarm.id, 1), "demo: confirming an alarm");
        log_.push_back(LogEntry(plant_.dayStart() + when, 2, "console",
                                fmt::format("confirmed alarm {}: {}", alarm.id, Describe(alarm)),
                                Operator(when)));
        alarm.confirm = 0;
        ++confirmed_;
      }
      if (alarm.recover != 0 && !alarm.recoveryStored && alarm.recover < until) {
        context_.session.Check(almSetRecoverAlarm(token, kAlarms, alarm.id, plant_.dayStart() + alarm.recover),
              "demo: recovering an alarm");
        alarm.recoveryStored = true;
      }
    }
    if (!log_.empty()) {
      std::stable_sort(log_.begin(), log_.end(), [](const LogRecord& a, const LogRecord& b) {
        return a.logtime < b.logtime;
      });
      context_.session.Check(logSetLog(token, kLog, log_.data(), static_cast<uint32_t>(log_.size() * sizeof(LogRecord))),
            "demo: writing the log");
      for (const LogRecord& entry : log_) logTimes_.push_back(uint32_t{entry.logtime});
      logWritten_ += log_.size();
      log_.clear();
    }
  }

  std::string Describe(const Alarm& alarm) const {
    const TagModel& tag = kTags[alarm.point % kTagCount];
    return fmt::format("{} {} {:.1f} {}", PointName(alarm.point), alarm.high ? "high" : "low",
                       alarm.value, tag.unit);
  }

  AlarmRecord Record(const Alarm& alarm) const {
    AlarmRecord record{};
    const TagModel& tag = kTags[alarm.point % kTagCount];
    int station = alarm.point / kTagCount;
    CopyText(record.station, kStations[station], "station");
    CopyText(record.tag, tag.name, "tag");
    record.value = alarm.value;
    record.alarmtype = alarm.high ? 1 : 2;
    // Temperature and pressure highs are the critical ones.
    record.alarmlevel = alarm.high ? (alarm.point % kTagCount < 2 ? 3 : 2) : 1;
    record.arisetime = plant_.dayStart() + alarm.arise;
    record.ip = (10u << 24) | (1u + station);
    double limit = tag.base + (alarm.high ? 1.25 : -1.25) * tag.swing;
    CopyText(record.description,
             fmt::format("{} limit {:.1f} {} crossed", alarm.high ? "high" : "low", limit, tag.unit),
             "description");
    return record;
  }

  Context& context_;
  const Plant& plant_;
  const DataTable& table_;
  std::vector<Alarm> alarms_;
  std::vector<size_t> raised_;
  int active_[kStationCount * kTagCount] = {};
  std::vector<LogRecord> log_;
  std::vector<uint32_t> logTimes_;
  size_t logWritten_ = 0, batches_ = 0, confirmed_ = 0;
};

// One bar per value between `low` and `high`; a blank for an hour without samples.
std::string Sparkline(const std::vector<double>& values, double low, double high) {
  static const char* const bars[] = {"▁", "▂", "▃", "▄", "▅", "▆", "▇", "█"};
  std::string line;
  for (double value : values)
    line += std::isnan(value) ? " "
                              : bars[high > low ? static_cast<int>((value - low) / (high - low) * 7.999) : 0];
  return line;
}

ResultTable KeepColumns(const ResultTable& table, const std::vector<std::string>& names) {
  ResultTable kept{names, {}};
  std::vector<size_t> indexes;
  for (const std::string& name : names)
    indexes.push_back(std::find(table.headers.begin(), table.headers.end(), name) -
                      table.headers.begin());
  for (const auto& row : table.rows) {
    kept.rows.emplace_back();
    for (size_t index : indexes) kept.rows.back().push_back(row[index]);
  }
  return kept;
}

void Report(Context& context, const DataTable& table, const Recorder& recorder,
            std::chrono::year_month_day date) {
  CallerToken token = context.session.Token();
  OutputOptions display{Format::Table, false};
  uint32_t day = LocalStart(date);

  // Per local hour, as stats --day: 23 or 25 of them when the clocks change.
  std::vector<Slot> hours = LocalHours(date);
  std::vector<std::vector<double>> averages(table.columns().size());
  for (const Slot& hour : hours) {
    std::vector<uint8_t> record =
        SlotStatistic(context.session, table, SCADASTORE_STAT_AVERAGE, hour);
    for (size_t point = 0; point < averages.size(); ++point)
      averages[point].push_back(LoadAt<double>(record.data(), table.Offset(point)));
  }
  ResultTable hourly{{"tag", "unit", "min", "max", fmt::format("{} hourly averages", hours.size())},
                     {}};
  for (size_t point = 0; point < averages.size(); ++point) {
    double low = INFINITY, high = -INFINITY;
    for (double value : averages[point])
      if (!std::isnan(value)) low = std::min(low, value), high = std::max(high, value);
    hourly.rows.push_back({table.columns()[point].name, kTags[point % kTagCount].unit,
                           std::round(low * 100) / 100, std::round(high * 100) / 100,
                           Sparkline(averages[point], low, high)});
  }
  std::cout << fmt::format(
      "\nHourly averages of {} (sgGetRecordStatValueOfInterval per local hour):\n",
      FormatLocalTime(day).substr(0, 10));
  Print(hourly, display, std::cout);

  std::vector<uint8_t> query(sizeof(AlarmQuery) + 32, 0);
  AlarmQuery head{};
  head.endTime = UINT32_MAX;
  head.filter = SCADASTORE_FILTER_STATIONS | (2u << 8);
  head.stationCount = 1;
  std::memcpy(query.data(), &head, sizeof head);
  std::memcpy(query.data() + sizeof head, kStations[0], std::strlen(kStations[0]));
  LibraryBlock<AlarmRecord> alarms;
  context.session.Check(almGetAlarmByQuery(token, kAlarms,
                                           reinterpret_cast<AlarmQuery*>(query.data()),
                                           &alarms.data, &alarms.size),
                        "demo: alarm query");
  std::cout << fmt::format("\nAlarms of level >= 2 at station {} (almGetAlarmByQuery):\n",
                           kStations[0]);
  ResultTable north = KeepColumns(AlarmTable(alarms.data, alarms.count(), display),
                                  {"id", "tag", "value", "level", "arisetime", "status",
                                   "recovertime", "description"});
  for (auto& row : north.rows) row[2] = std::round(row[2].get<double>() * 100) / 100;
  Print(north, display, std::cout);

  uint32_t hour = day + recorder.BusiestHour();
  LibraryBlock<LogRecord> entries;
  context.session.Check(
      logGetLogByTime(token, kLog, hour, hour + 3599, &entries.data, &entries.size),
      "demo: log query");
  std::cout << fmt::format("\nLog entries from {} to {}:59:59 (logGetLogByTime):\n",
                           FormatLocalTime(hour).substr(0, 16),
                           FormatLocalTime(hour).substr(11, 2));
  Print(KeepColumns(LogTable(entries.data, entries.count(), display),
                    {"id", "time", "type", "source", "operator", "info"}),
        display, std::cout);

  const std::string sql = fmt::format(
      "select station, count(*) as alarms, sum(case when status <> 0 then 1 else 0 end) as "
      "confirmed, max(alarmlevel) as top_level, max(arisetime) as last_alarm from {} group by "
      "station order by station",
      kAlarms);
  ResultTable summary = RunTextTableQuery(context, kAlarms, sql, "last_alarm");
  std::cout << fmt::format("\nFree SQL (sgGetRecordBySQL): {}\n", sql);
  Print(summary, display, std::cout);
}

struct DemoOptions {
  std::string day, report;
};

// The report beside the SQLite file, else in the working directory.
std::string ReportPath(const Context& context, const DemoOptions& options) {
  if (!options.report.empty()) return options.report;
  const std::string& database = context.session.options.sqlite;
  size_t slash = database.rfind('/');
  return (slash == std::string::npos ? "" : database.substr(0, slash + 1)) + "demo-report.html";
}

void RunDemo(Context& context, const DemoOptions& options) {
  const std::string& dayText = options.day;
  auto started = std::chrono::steady_clock::now();
  CallerToken token = context.session.Token();
  if (!context.session.CanBatch())
    throw UsageError("demo: kind " + std::to_string(context.session.kind()) +
                     " stores samples one by one; use a kind from 2 to 5 (--sqlite uses 3)");

  time_t dayTime = dayText.empty() ? std::time(nullptr) - kDay : ParseTime(dayText, "--day");
  std::tm local;
  localtime_r(&dayTime, &local);
  std::chrono::year_month_day date{std::chrono::year(local.tm_year + 1900),
                                  std::chrono::month(local.tm_mon + 1),
                                  std::chrono::day(local.tm_mday)};
  uint32_t day = LocalStart(date);

  std::vector<Column> columns;
  for (const char* station : kStations)
    for (const TagModel& tag : kTags)
      columns.push_back({fmt::format("{}_{}", station, tag.name), SCADASTORE_VALUE_FLOAT});
  DataTable table(kSamples, columns, SCADASTORE_STAT_AVERAGE);

  // A fresh day each run.
  for (const char* name : {kSamples, kAlarms, kLog})
    if (dbIsTableExist(token, name)) dbRemoveTable(token, name, nullptr, 0);
  char error[1024] = "";
  sgEnsureTableExist(token, table.info(), error, sizeof error);
  almEnsureTableExist(token, kAlarms);
  logEnsureTableExist(token, kLog);
  for (const char* name : {kSamples, kAlarms, kLog}) RequireTable(context, name, error);

  std::cout << fmt::format(
      "scadastore demo: {} stations x {} tags, one day of 1-second samples\n"
      "database: {}\nday: {} (local time)\n\n",
      kStationCount, kTagCount, context.session.Describe(), FormatLocalTime(day).substr(0, 10));
  std::cout.flush();

  Plant plant(day);
  Recorder recorder(context, plant, table);
  recorder.Play();
  double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
  size_t recovered = std::count_if(recorder.alarms().begin(), recorder.alarms().end(),
                                   [](const Alarm& alarm) { return alarm.recover != 0; });
  std::cout << fmt::format(
      "Stored in {:.1f} s:\n"
      "  {:<13} {:>6} samples of {} values, in {} batches\n"
      "  {:<13} {:>6} alarms ({} confirmed, {} recovered within the day)\n"
      "  {:<13} {:>6} log entries\n",
      seconds, kSamples, kDay, columns.size(), recorder.batches(), kAlarms,
      recorder.alarms().size(), recorder.confirmed(), recovered, kLog, recorder.logEntries());

  Report(context, table, recorder, date);
  std::cout << fmt::format(
      "\nLook further:\n"
      "  scadastore --sqlite {0} alarms {1} --level 3\n"
      "  scadastore --sqlite {0} logs {2} --from '{3}' --to '{4}'\n"
      "  scadastore --sqlite {0} stats {5} --columns {6} --day {7} --stat max\n",
      context.session.options.sqlite.empty() ? "FILE" : context.session.options.sqlite, kAlarms,
      kLog, FormatLocalTime(day + 6 * 3600).substr(0, 16),
      FormatLocalTime(day + 7 * 3600).substr(0, 16), kSamples, "north_temp,north_press",
      FormatLocalTime(day).substr(0, 10));

  ReportOptions report;
  report.day = FormatLocalTime(day).substr(0, 10);
  report.output = ReportPath(context, options);
  for (size_t point = 0; point < columns.size(); ++point)
    report.units.push_back(columns[point].name + "=" + kTags[point % kTagCount].unit);
  std::cout << "\nThe day's trends, alarms and log as one page (open it in a browser):\n";
  WriteReport(context, report);
}

}  // namespace

void AddDemoCommand(CLI::App& app, Context& context) {
  Command demo = AddCommand<DemoOptions>(
      app, context,
      {"demo",
       "Play a small plant (4 stations x 8 tags) for one local day (yesterday or --day): "
       "1-second samples written in batches, alarms raised, confirmed and recovered, operator "
       "log entries; then report what the store reads back. The tables plant, plant_alarms "
       "and plant_log are replaced",
       "scadastore --sqlite build/demo.db demo --day 2024-05-01"},
      RunDemo);
  demo.app->add_option("--day", demo.options.day,
                       "the local day to play, YYYY-MM-DD (default: yesterday)");
  demo.app->add_option("--report", demo.options.report,
                       "the HTML report written at the end (default: demo-report.html beside "
                       "the SQLite file)");
  demo.app->preparse_callback(
      [&context](size_t) { context.session.options.createSqlite = true; });
}

}  // namespace scadastore::cli
