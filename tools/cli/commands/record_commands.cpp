// records: list, count, import from CSV and export to CSV the samples of a
// data table; ensure data. The columns come from the table itself.
#include <cmath>
#include <fstream>
#include <memory>
#include <optional>

#include <fmt/format.h>

#include "tools/cli/command.h"
#include "tools/cli/output/csv.h"
#include "tools/cli/database/data_table.h"
#include "tools/cli/commands/figure_statements.h"
#include "tools/cli/commands/record_writer.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

const char* const kRecordHead[] = {"id", "time", "ms", "modify"};

struct ListOptions {
  std::string table, columns, minute, output;
  TimeRangeOptions range;
  uint32_t index = 0;
  size_t points = 0;
};

struct ImportOptions {
  std::string table, file;
  size_t skip = 0;
  bool append = false;
};

std::vector<std::string> RecordHeaders(const DataTable& table) {
  std::vector<std::string> headers(std::begin(kRecordHead), std::end(kRecordHead));
  for (const Column& column : table.columns()) headers.push_back(column.name);
  return headers;
}

// The rows of a time range in id order, read through the tool's own
// connection in pages: the drivers hold a whole result in memory, so a page
// bounds what they hold. Floats keep every digit.
void StreamRecords(Context& context, const DataTable& table, const ListOptions& options,
                   const std::vector<size_t>& chosen, RowWriter& writer) {
  constexpr int kPageRows = 5000;
  Slot range = ParseTimeRange(options.range);
  Session& session = context.session;
  std::string select = "select ";
  for (const char* name : kRecordHead) select += session.Quote(name) + ",";
  for (const Column& column : table.columns()) {
    std::string name = session.Quote(column.name);
    bool exact = column.type == SCADASTORE_VALUE_FLOAT && session.Database().IsSqlite();
    select += (exact ? ExactSqliteFloat(name) : name) + ",";
  }
  select.back() = ' ';
  select += fmt::format("from {} where {} >= {} and {} <= {}", session.Quote(table.name()),
                        session.Quote("time"), range.start, session.Quote("time"), LastSecond(range));
  // Without "limit" (other databases) the whole range is one page.
  bool paged = session.Database().HasLimit();
  std::string order = fmt::format(" order by {}", session.Quote("id"));
  if (paged) order += fmt::format(" limit {}", kPageRows);
  size_t columns = 4 + table.columns().size();
  std::string lastId;
  try {
    for (int rowsInPage = kPageRows; rowsInPage == kPageRows;) {
      std::string page = select;
      if (!lastId.empty()) page += fmt::format(" and {} > {}", session.Quote("id"), lastId);
      OdbcStatement statement = session.Database().Statement();
      statement.Execute(page + order);
      rowsInPage = 0;
      while (statement.Fetch()) {
        ++rowsInPage;
        std::vector<Cell> cells(columns);
        for (size_t c = 0; c < columns; ++c) {
          uint32_t type =
              c < 4 ? uint32_t{SCADASTORE_VALUE_INTEGER} : table.columns()[c - 4].type;
          // Floats come exactly: from SQLite as "k m", from the others as doubles.
          std::optional<std::string> text = statement.Text(
              static_cast<int>(c + 1), type == SCADASTORE_VALUE_FLOAT && !session.Database().IsSqlite());
          if (!text) continue;
          if (c == 0) lastId = *text;
          if (c == 1)
            cells[c] = TimeCell(static_cast<uint32_t>(std::stoul(*text)), context.Output());
          else if (type == SCADASTORE_VALUE_FLOAT) cells[c] = ParseExactFloat(*text);
          else if (type == SCADASTORE_VALUE_INTEGER) cells[c] = std::stoll(*text);
          else cells[c] = *text;
        }
        std::vector<Cell> row;
        for (size_t c : chosen) row.push_back(std::move(cells[c]));
        writer.Write(std::move(row));
      }
      if (!paged) break;
    }
  } catch (const OdbcError& error) {
    throw CommandError(fmt::format("reading {}: {}", table.name(), error.what()));
  }
}

// --points N: per column at most N points of the range that keep its shape,
// the first, last, minimum and maximum of each of N / 4 equal buckets, in
// one statement. A row shows a column's value only where it is one of that
// column's points.
void StreamTrend(Context& context, const DataTable& table, const ListOptions& options,
                 const std::vector<size_t>& chosen, RowWriter& writer) {
  if (options.points < 4) throw UsageError("--points: give at least 4 (a bucket's 4 points)");
  Slot range = ParseBoundedTimeRange(options.range);
  std::vector<std::string> values;
  std::vector<size_t> valueColumns;  // of each value, its place among the records' columns
  for (size_t c : chosen) {
    if (c < 4) continue;
    const Column& column = table.columns()[c - 4];
    if (column.type == SCADASTORE_VALUE_TEXT) {
      if (!options.columns.empty())
        throw UsageError(fmt::format("--points: {} is a text column, which has no trend",
                                     column.name));
      continue;
    }
    values.push_back(column.name);
    valueColumns.push_back(c);
  }
  if (values.empty()) throw UsageError("--points: choose a float or int column");
  Session& session = context.session;
  bool exact = session.Database().IsSqlite();
  std::string sql = M4Statement(session.kind(), table.name(), values,
                                SplitRange(range, options.points / 4), exact);
  try {
    OdbcStatement statement = session.Database().Statement();
    statement.Execute(sql);
    size_t flags = 4 + values.size();  // first, last, then a minimum and maximum per value
    while (statement.Fetch()) {
      std::vector<Cell> cells(4 + table.columns().size());
      for (int c = 0; c < 4; ++c)
        if (auto text = statement.Text(c + 1)) cells[c] = std::stoll(*text);
      cells[1] = TimeCell(static_cast<uint32_t>(cells[1].get<int64_t>()), context.Output());
      auto flag = [&](size_t f) { return statement.Text(static_cast<int>(flags + f + 1)) == "1"; };
      bool edge = flag(0) || flag(1);
      for (size_t v = 0; v < values.size(); ++v) {
        auto text = statement.Text(static_cast<int>(4 + v + 1), !exact);  // every digit
        if (text && (edge || flag(2 + 2 * v) || flag(3 + 2 * v)))
          cells[valueColumns[v]] = ParseExactFloat(*text);
      }
      std::vector<Cell> row;
      for (size_t c : chosen) row.push_back(std::move(cells[c]));
      writer.Write(std::move(row));
    }
  } catch (const OdbcError& error) {
    throw CommandError(fmt::format("reading {}: {}", table.name(), error.what()));
  }
}

// --index and --minute: one record through the library's own reader.
std::vector<Cell> OneRecord(Context& context, const DataTable& table, const ListOptions& options) {
  Session& session = context.session;
  std::vector<uint8_t> record = table.EmptyRecord();
  auto* head = reinterpret_cast<DataRecord*>(record.data());
  if (options.index != 0) {
    uint32_t count = sgGetRecordCount(session.Token(), table.info());
    if (count == UINT32_MAX) session.Fail("records --index");
    if (options.index > count)
      throw CommandError(fmt::format("no record {}; {} has {}", options.index, table.name(), count));
    session.Check(sgGetRecordByIndex(session.Token(), table.info(), options.index, head,
                                     table.recordSize()),
                  "records --index");
  } else {
    session.Check(sgGetRecordByTime(session.Token(), table.info(),
                                    ParseTime(options.minute, "--minute"), head,
                                    table.recordSize()),
                  "records --minute");
  }
  return table.RecordCells(record.data(), context.Output());
}

void RunList(Context& context, const ListOptions& options) {
  DataTable table = ReadDataTable(context.session, options.table);
  std::vector<std::string> headers = RecordHeaders(table);
  std::vector<size_t> chosen = SelectColumns(headers, options.columns, table.name());
  std::vector<std::string> chosenHeaders;
  for (size_t c : chosen) chosenHeaders.push_back(headers[c]);
  if (options.index != 0 || !options.minute.empty()) {
    std::vector<Cell> cells = OneRecord(context, table, options), row;
    for (size_t c : chosen) row.push_back(cells[c]);
    Print({chosenHeaders, {row}}, context.Output(), std::cout);
    return;
  }
  RowWriter writer(chosenHeaders, context.Output().format, std::cout);
  if (options.points > 0) StreamTrend(context, table, options, chosen, writer);
  else StreamRecords(context, table, options, chosen, writer);
  writer.Finish();
}

void RunExport(Context& context, const ListOptions& options) {
  DataTable table = ReadDataTable(context.session, options.table);
  std::vector<std::string> headers = RecordHeaders(table);
  std::string columns = options.columns;
  if (columns.empty()) {  // import's form: time, ms and the values
    columns = "time,ms";
    for (const Column& column : table.columns()) columns += "," + column.name;
  }
  std::vector<size_t> chosen = SelectColumns(headers, columns, table.name());
  std::vector<std::string> chosenHeaders;
  for (size_t c : chosen) chosenHeaders.push_back(headers[c]);
  std::ofstream file;
  if (!options.output.empty()) {
    file.open(options.output);
    if (!file) throw CommandError("export: cannot write " + options.output);
  }
  std::ostream& out = options.output.empty() ? std::cout : file;
  RowWriter writer(chosenHeaders, Format::Csv, out);
  StreamRecords(context, table, options, chosen, writer);
  writer.Finish();
  if (!out) throw CommandError("export: cannot write " + options.output);
  if (!options.output.empty())
    std::cerr << fmt::format("exported {} records to {}\n", writer.rows(), options.output);
}

uint32_t Milliseconds(const std::string& text) {
  if (text.empty() || text.size() > 3 || text.find_first_not_of("0123456789") != std::string::npos)
    throw CommandError(fmt::format("ms: '{}' is not 0 to 999", text));
  return static_cast<uint32_t>(std::stoul(text));
}

// One line of the file: its time, ms and the value of each column (none
// for an empty field, which is stored as NULL).
struct Line {
  uint32_t time = 0, ms = 0;
  std::vector<std::optional<std::string>> values;
};

// Reads and checks the lines of an import file; a malformed line throws a
// CommandError naming the file and line.
class LineReader {
 public:
  LineReader(const DataTable& table, const std::string& path) : table_(table), path_(path) {
    in_.open(path);
    if (!in_) throw CommandError(fmt::format("import: cannot read {}", path));
    Guarded([&] {
      std::vector<std::string> header;
      if (!reader_.Next(header)) throw CommandError("empty file; the first line names the columns");
      std::vector<bool> seen(table.columns().size());
      for (const std::string& name : header) {
        auto column = std::find_if(table.columns().begin(), table.columns().end(),
                                   [&](const Column& c) { return c.name == name; });
        if (name == "time") target_.push_back(kTime);
        else if (name == "ms") target_.push_back(kMs);
        else if (name == "id" || name == "modify") target_.push_back(kIgnored);
        else if (column != table.columns().end()) {
          target_.push_back(static_cast<int>(column - table.columns().begin()));
          seen[target_.back()] = true;
        } else {
          throw CommandError(fmt::format("'{}' is not time, ms or a column of {} ({})", name,
                                         table.name(), ColumnNames()));
        }
      }
      if (std::find(target_.begin(), target_.end(), kTime) == target_.end())
        throw CommandError("no time column");
      for (size_t c = 0; c < seen.size(); ++c)
        if (!seen[c]) throw CommandError(fmt::format("column {} is missing", table.columns()[c].name));
    });
  }

  // The next line, checked as the library would store it; false at the end.
  bool Next(Line& line) {
    return Guarded([&] {
      if (!reader_.Next(fields_)) return false;
      if (fields_.size() != target_.size())
        throw CommandError(
            fmt::format("{} fields where the header has {}", fields_.size(), target_.size()));
      line.ms = 0;
      line.values.assign(table_.columns().size(), std::nullopt);
      std::vector<uint8_t> record = table_.EmptyRecord();
      for (size_t f = 0; f < fields_.size(); ++f) {
        if (target_[f] == kTime) line.time = ParseTime(fields_[f], "time");
        else if (target_[f] == kMs) line.ms = Milliseconds(fields_[f]);
        else if (target_[f] >= 0 && !fields_[f].empty()) {
          table_.SetValue(record.data(), target_[f], fields_[f]);
          line.values[target_[f]] = fields_[f];
        }
      }
      if (std::none_of(line.values.begin(), line.values.end(), [](auto& v) { return v.has_value(); }))
        throw CommandError("every value is empty; a record keeps at least one");
      return true;
    });
  }
  size_t line() const { return reader_.line(); }

 private:
  static constexpr int kTime = -1, kMs = -2, kIgnored = -3;  // else a column

  std::string ColumnNames() const {
    std::vector<std::string> names;
    for (const Column& column : table_.columns()) names.push_back(column.name);
    return JoinNames(names);
  }
  template <typename Body>
  auto Guarded(Body body) -> decltype(body()) {
    try {
      return body();
    } catch (const CommandError& error) {
      throw CommandError(fmt::format("import: {}:{}: {}", path_, reader_.line(), error.what()));
    }
  }

  const DataTable& table_;
  std::string path_;
  std::ifstream in_;
  CsvReader reader_{in_};
  std::vector<int> target_;
  std::vector<std::string> fields_;
};

// Stores lines in batches; the lines of one batch have their NULLs in the
// same columns, which the batch's table leaves out.
class LineStore {
 public:
  LineStore(Session& session, const DataTable& table, Progress& progress)
      : session_(session), table_(table), progress_(progress) {}

  void Add(const Line& line, size_t fileLine) {
    std::vector<bool> nulls;
    for (const auto& value : line.values) nulls.push_back(!value);
    if (!batchTable_ || nulls != nulls_ || count_ == perBatch_) Flush();
    if (!batchTable_ || nulls != nulls_) {
      std::vector<Column> columns = table_.columns();
      for (size_t c = 0; c < columns.size(); ++c)
        if (nulls[c]) columns[c].type = 0;
      batchTable_.emplace(table_.name(), columns);
      nulls_ = nulls;
      perBatch_ = session_.CanBatch() ? RecordsPerBatch(*batchTable_) : 1;
    }
    size_t offset = buffer_.size();
    buffer_.resize(offset + batchTable_->recordSize(), 0);
    uint8_t* record = buffer_.data() + offset;
    StoreAt(record, offsetof(DataRecord, time), line.time);
    StoreAt(record, offsetof(DataRecord, ms), line.ms);
    for (size_t c = 0; c < line.values.size(); ++c)
      if (line.values[c]) batchTable_->SetValue(record, c, *line.values[c]);
    lines_.push_back(fileLine);
    ++count_;
  }

  // Stores what was added; on failure a StoreError counts the records
  // stored by this store in all.
  void Flush() {
    if (count_ == 0) return;
    try {
      StoreRecords(session_, *batchTable_, buffer_.data(), count_, progress_, stored_);
    } catch (const StoreError& error) {
      if (error.stored > 0) lastStoredLine_ = lines_[error.stored - 1];
      stored_ += error.stored;
      throw;
    }
    stored_ += count_;
    lastStoredLine_ = lines_.back();
    count_ = 0;
    buffer_.clear();
    lines_.clear();
  }
  size_t stored() const { return stored_; }
  size_t lastStoredLine() const { return lastStoredLine_; }

 private:
  Session& session_;
  const DataTable& table_;
  Progress& progress_;
  std::optional<DataTable> batchTable_;
  std::vector<bool> nulls_;
  std::vector<uint8_t> buffer_;
  std::vector<size_t> lines_;  // the file line of each record in buffer_
  size_t count_ = 0, perBatch_ = 1, stored_ = 0, lastStoredLine_ = 0;
};

// Records of the table within [from, to], read through the tool's own
// connection.
uint32_t CountInRange(Session& session, const std::string& table, uint32_t from, uint32_t to) {
  try {
    OdbcStatement statement = session.Database().Statement();
    statement.Execute(fmt::format("select count(*) from {} where {} >= {} and {} <= {}",
                                  session.Quote(table), session.Quote("time"), from,
                                  session.Quote("time"), to));
    statement.Fetch();
    return static_cast<uint32_t>(std::stoul(statement.Text(1).value_or("0")));
  } catch (const OdbcError& error) {
    throw CommandError(fmt::format("reading {}: {}", table, error.what()));
  }
}

// The whole file is checked first, then stored in batches. An interrupt
// (Ctrl-C) or a failure stops between two batches and says exactly which
// lines are stored and how to resume; a repeated import is refused.
void RunCount(Context& context, const ListOptions& options) {
  DataTable table = ReadDataTable(context.session, options.table);
  uint32_t rows = sgGetRecordCount(context.session.Token(), table.info());
  if (rows == UINT32_MAX) context.session.Fail("records count");
  std::cout << rows << '\n';
}

void RunImport(Context& context, const ImportOptions& options) {
  Session& session = context.session;
  DataTable table = ReadDataTable(session, options.table);
  size_t lines = 0;
  uint32_t first = UINT32_MAX, last = 0;
  {
    LineReader reader(table, options.file);
    for (Line line; reader.Next(line); ++lines) {
      first = std::min(first, line.time);
      last = std::max(last, line.time);
    }
  }
  if (options.skip > lines)
    throw UsageError(fmt::format("--skip {}: {} has only {} records", options.skip, options.file,
                                 lines));
  if (lines > 0 && options.skip == 0 && !options.append) {
    uint32_t present = CountInRange(session, table.name(), first, last);
    if (present > 0)
      throw CommandError(fmt::format(
          "import: {} already holds {} records from {} to {}, the times of {}; nothing is "
          "stored. Give --skip N to resume an import that stored its first N records, or "
          "--append to store the file beside them",
          table.name(), present, FormatLocalTime(first), FormatLocalTime(last), options.file));
  }

  LineReader reader(table, options.file);
  Progress progress("importing", lines - options.skip);
  LineStore store(session, table, progress);
  Line line;
  for (size_t skipped = 0; skipped < options.skip; ++skipped) reader.Next(line);
  auto stopped = [&](const std::string& why) {
    progress.Finish();
    size_t stored = options.skip + store.stored();
    return CommandError(fmt::format(
        "import {}: {}. The first {} records of the file{} are in {}, the rest not; resume "
        "with: records import {} {} --skip {}",
        options.file, why, stored,
        store.stored() ? fmt::format(" (to line {})", store.lastStoredLine()) : "", table.name(),
        table.name(), options.file, stored));
  };
  session.DeferInterrupts(true);
  try {
    while (reader.Next(line)) {
      if (Session::Interrupted()) break;
      store.Add(line, reader.line());
    }
    store.Flush();
  } catch (const StoreError& error) {
    session.DeferInterrupts(false);
    throw stopped(fmt::format("stopped by the database: {}", error.what()));
  }
  session.DeferInterrupts(false);
  if (Session::Interrupted()) {
    context.exitCode = 130;
    std::cerr << "scadastore: " << stopped("interrupted").what() << '\n';
    return;
  }
  progress.Finish();
  std::cout << fmt::format("imported {} records into {} (every line of {})\n",
                           lines - options.skip, table.name(), options.file);
}

}  // namespace

void AddRecordCommands(CLI::App& app, Context& context) {
  EnsureKinds()["data"] = [](Context& context, const std::string& name,
                             const std::string& columns) {
    DataTable table(name, ParseColumns(columns));
    char error[1024] = "";
    if (sgEnsureTableExist(context.session.Token(), table.info(), error, sizeof error) != 0)
      context.session.Fail(fmt::format("ensure data{}{}", *error ? ": " : "", error));
  };

  Command records = AddCommand<ListOptions>(
      app, context,
      {"records",
       "List the samples of a data table: all, a time range, the one at a position, or the "
       "first of a minute; or, with --points, a trend of a time range that keeps its shape",
       "scadastore --sqlite plant.db records samples --columns time,temp --from "
       "'2024-05-01 08:00' --to '2024-05-01 08:10'",
       "data table"},
      RunList);
  ListOptions& list = records.options;
  records.app->add_option("--columns", list.columns,
                          "columns to show, by name and in this order: id, time, ms, modify and "
                          "the table's value columns (see 'describe TABLE'); default: all");
  auto [from, to] = AddTimeRange(*records.app, list.range);
  auto* index = records.app
                    ->add_option("--index", list.index,
                                 "the record at this position in id order, from 1")
                    ->check(CLI::PositiveNumber)
                    ->excludes(from)->excludes(to);
  auto* minute =
      records.app
          ->add_option("--minute", list.minute, "the first record of the minute from this time")
          ->excludes(from)->excludes(to)->excludes(index);
  records.app
      ->add_option("--points", list.points,
                   "at most N points per column over [--from, --to) that keep the trend's "
                   "shape: the range is cut into N/4 equal buckets and each keeps its first, "
                   "last, minimum and maximum sample (M4), computed by the database in one "
                   "statement; a row leaves empty the columns it is no point of. Text columns "
                   "are left out")
      ->excludes(index)->excludes(minute);

  AddCommand<ListOptions>(*records.app, context,
                          {"count", "Print the number of records",
                           "scadastore --sqlite plant.db records count samples", "data table"},
                          RunCount);

  Command import = AddCommand<ImportOptions>(
      *records.app, context,
      {"import",
       "Store the rows of a CSV file whose first line names its columns: time (local "
       "date-time or epoch seconds), optionally ms, and every value column of the table (id "
       "and modify are ignored, so an export imports as it is). An empty field is stored as "
       "NULL. The whole file is checked first: a malformed line stops the import before "
       "anything is stored. Then it is stored in batches; if that stops (Ctrl-C, a database "
       "error), the tool says how many of the first records are stored and how to resume with "
       "--skip. A file whose times the table already holds is refused unless --skip or "
       "--append is given",
       "scadastore --sqlite plant.db records import samples samples.csv", "data table"},
      RunImport);
  import.app->add_option("file", import.options.file, "CSV file")->required();
  auto* skip = import.app->add_option(
      "--skip", import.options.skip, "leave out the first N records of the file (already stored)");
  import.app
      ->add_flag("--append", import.options.append,
                 "store the file even though the table holds records of its times")
      ->excludes(skip);

  Command exporting = AddCommand<ListOptions>(
      *records.app, context,
      {"export",
       "Write the samples (or a time range) as CSV in the form that import reads, with every "
       "digit of the floats; add --epoch for times that stay exact across a daylight-saving "
       "change",
       "scadastore --sqlite plant.db records export samples --epoch -o samples.csv",
       "data table"},
      RunExport);
  exporting.app->add_option("--columns", exporting.options.columns,
                            "columns to write, by name and in this order; default: time, ms "
                            "and the value columns");
  AddTimeRange(*exporting.app, exporting.options.range);
  exporting.app->add_option("-o,--output", exporting.options.output,
                            "file to write (default: stdout)");
}

}  // namespace scadastore::cli
