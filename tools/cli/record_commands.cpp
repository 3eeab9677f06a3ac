// records: list, count, import from CSV and export to CSV the samples of a
// data table; ensure data.
#include <fstream>
#include <memory>

#include <fmt/format.h>

#include "tools/cli/commands.h"
#include "tools/cli/csv.h"
#include "tools/cli/data_table.h"
#include "tools/cli/record_writer.h"
#include "tools/cli/times.h"

namespace scadastore::cli {
namespace {

struct Arguments {
  std::string table, columns, from, to, minute, file, output;
  uint32_t index = 0;
};

using Block = std::unique_ptr<void, decltype(&std::free)>;

// The records that the arguments select, back to back.
std::vector<uint8_t> ReadRecords(Context& context, const Arguments& arguments,
                                 const DataTable& table) {
  CallerToken token = context.session.token();
  std::vector<uint8_t> one = table.EmptyRecord();
  if (arguments.index != 0) {
    Check(sgGetRecordByIndex(token, table.info(), arguments.index,
                             reinterpret_cast<DataRecord*>(one.data()), table.recordSize()),
          "records --index");
    return one;
  }
  if (!arguments.minute.empty()) {
    Check(sgGetRecordByTime(token, table.info(), ParseTime(arguments.minute, "--minute"),
                            reinterpret_cast<DataRecord*>(one.data()), table.recordSize()),
          "records --minute");
    return one;
  }
  void* records = nullptr;
  uint32_t size = 0;
  if (arguments.from.empty() && arguments.to.empty()) {
    Check(sgGetRecord(token, table.info(), &records, &size, nullptr), "records");
  } else {
    uint32_t from = arguments.from.empty() ? 0 : ParseTime(arguments.from, "--from");
    uint32_t to = arguments.to.empty() ? UINT32_MAX : ParseTime(arguments.to, "--to");
    if (from >= to) throw CommandError("records: --from must be before --to");
    Check(sgGetAllRecordOfInterval(token, table.info(), from, to, &records, &size), "records");
  }
  Block owner(records, &std::free);
  const auto* bytes = static_cast<const uint8_t*>(records);
  return std::vector<uint8_t>(bytes, bytes + size);
}

ResultTable RecordTable(const DataTable& table, const std::vector<uint8_t>& records,
                        const OutputOptions& options) {
  ResultTable result{table.RecordHeaders(), {}};
  for (size_t offset = 0; offset < records.size(); offset += table.recordSize())
    result.rows.push_back(table.RecordCells(records.data() + offset, options));
  return result;
}

uint32_t Milliseconds(const std::string& text) {
  if (text.empty() || text.size() > 3 || text.find_first_not_of("0123456789") != std::string::npos)
    throw CommandError(fmt::format("ms: '{}' is not 0 to 999", text));
  return static_cast<uint32_t>(std::stoul(text));
}

// Reads the whole file before anything is stored: a malformed line stops
// the import with nothing written. Returns the records and their lines.
std::vector<uint8_t> ParseCsv(const DataTable& table, const std::string& path,
                              std::vector<size_t>& lines) {
  std::ifstream in(path);
  if (!in) throw CommandError(fmt::format("import: cannot read {}", path));
  CsvReader reader(in);
  std::vector<std::string> header, fields;
  auto fail = [&](const std::string& problem) -> void {
    throw CommandError(fmt::format("import: {}:{}: {}", path, reader.line(), problem));
  };
  try {
    if (!reader.Next(header)) fail("empty file; the first line names the columns");
    // Where each field goes: -1 time, -2 ms, -3 ignored, else a column.
    std::vector<int> target;
    std::vector<bool> seen(table.columns().size());
    for (const std::string& name : header) {
      auto column = std::find_if(table.columns().begin(), table.columns().end(),
                                 [&](const Column& c) { return c.name == name; });
      if (name == "time") target.push_back(-1);
      else if (name == "ms") target.push_back(-2);
      else if (name == "id" || name == "modify") target.push_back(-3);
      else if (column != table.columns().end()) {
        target.push_back(static_cast<int>(column - table.columns().begin()));
        seen[target.back()] = true;
      } else fail(fmt::format("'{}' is not time, ms or a column of --columns", name));
    }
    if (std::find(target.begin(), target.end(), -1) == target.end()) fail("no time column");
    for (size_t c = 0; c < seen.size(); ++c)
      if (!seen[c]) fail(fmt::format("column {} is missing", table.columns()[c].name));

    std::vector<uint8_t> records;
    while (reader.Next(fields)) {
      if (fields.size() != header.size())
        fail(fmt::format("{} fields where the header has {}", fields.size(), header.size()));
      size_t offset = records.size();
      records.resize(offset + table.recordSize(), 0);
      uint8_t* record = records.data() + offset;
      for (size_t f = 0; f < fields.size(); ++f) {
        if (target[f] == -1) StoreAt(record, 4, ParseTime(fields[f], "time"));
        else if (target[f] == -2) StoreAt(record, 8, Milliseconds(fields[f]));
        else if (target[f] >= 0) table.SetValue(record, target[f], fields[f]);
      }
      lines.push_back(reader.line());
    }
    return records;
  } catch (const CommandError& error) {
    if (std::string(error.what()).rfind("import: ", 0) == 0) throw;
    fail(error.what());
  }
  return {};
}

void Import(Context& context, const Arguments& arguments) {
  DataTable table(arguments.table, ParseColumns(arguments.columns));
  std::vector<size_t> lines;
  std::vector<uint8_t> records = ParseCsv(table, arguments.file, lines);
  context.session.Connect();
  RequireTable(context, table.name(), "create it with 'ensure data'");
  size_t count = lines.size();
  Progress progress("importing", count);
  try {
    StoreRecords(context.session, table, records.data(), count, progress);
  } catch (const StoreError& error) {
    progress.Finish();
    throw CommandError(fmt::format(
        "import: {} records stored (up to line {}); the records from line {} on are not: {}",
        error.stored, error.stored ? lines[error.stored - 1] : 1, lines[error.stored],
        error.what()));
  }
  progress.Finish();
  std::cout << fmt::format("imported {} records into {}\n", count, table.name());
}

}  // namespace

void AddRecordCommands(CLI::App& app, Context& context) {
  EnsureKinds()["data"] = [](Context& context, const std::string& name, const std::string& columns) {
    DataTable table(name, ParseColumns(columns));
    char error[1024] = "";
    Check(sgEnsureTableExist(context.session.token(), table.info(), error, sizeof error),
          "ensure data");
    RequireTable(context, name, error);
  };

  auto arguments = std::make_shared<Arguments>();
  const std::string columnsHelp =
      "value columns of the table, in order: name:float|int|text,... (a bare name is float; int "
      "values are stored as 0 or 1)";
  CLI::App* records = AddCommand(
      app, "records",
      "List the samples of a data table: all, a time range, the one at a position, or the "
      "first of a minute",
      "scadastore --sqlite plant.db records samples --columns temp,pump:int,mode:text --from "
      "'2024-05-01 08:00' --to '2024-05-01 08:10'");
  records->add_option("table", arguments->table, "data table");
  records->add_option("--columns", arguments->columns, columnsHelp);
  auto* from = records->add_option("--from", arguments->from,
                                   "first time (included): local date-time or epoch seconds");
  auto* to = records->add_option("--to", arguments->to, "last time (included)");
  auto* index = records->add_option("--index", arguments->index,
                                    "the record at this position in id order, from 1");
  records->add_option("--minute", arguments->minute, "the first record of the minute from this time")
      ->excludes(from)->excludes(to)->excludes(index);
  index->excludes(from)->excludes(to);
  records->callback([&context, records, arguments] {
    if (!records->get_subcommands().empty()) return;
    if (arguments->table.empty() || arguments->columns.empty())
      throw CommandError("records: name the data table and give --columns");
    DataTable table(arguments->table, ParseColumns(arguments->columns));
    context.session.Connect();
    context.Print(RecordTable(table, ReadRecords(context, *arguments, table), context.Output()));
  });

  CLI::App* count = AddCommand(*records, "count", "Print the number of records",
                               "scadastore --sqlite plant.db records count samples");
  count->add_option("table", arguments->table, "data table")->required();
  count->callback([&context, arguments] {
    context.session.Connect();
    uint32_t rows = sgGetRecordCount(context.session.token(),
                                     reinterpret_cast<const DataTableInfo*>(arguments->table.c_str()));
    if (rows == UINT32_MAX) ThrowLibraryError("records count");
    std::cout << rows << '\n';
  });

  CLI::App* import = AddCommand(
      *records, "import",
      "Store the rows of a CSV file whose first line names its columns: time (local date-time "
      "or epoch seconds), optionally ms, and every column of --columns (id and modify are "
      "ignored, so an export imports as it is). The whole file is checked first: a malformed "
      "line stops the import before anything is stored. Kinds 2 to 5 store in batches",
      "scadastore --sqlite plant.db records import samples --columns temp,pump:int samples.csv");
  import->add_option("table", arguments->table, "data table")->required();
  import->add_option("file", arguments->file, "CSV file")->required();
  import->add_option("--columns", arguments->columns, columnsHelp)->required();
  import->callback([&context, arguments] { Import(context, *arguments); });

  CLI::App* exporting = AddCommand(
      *records, "export",
      "Write the samples (or a time range) as CSV in the form that import reads; add --epoch "
      "for times that stay exact across a daylight-saving change",
      "scadastore --sqlite plant.db records export samples --columns temp,pump:int -o "
      "samples.csv");
  exporting->add_option("table", arguments->table, "data table")->required();
  exporting->add_option("--columns", arguments->columns, columnsHelp)->required();
  exporting->add_option("--from", arguments->from, "first time (included)");
  exporting->add_option("--to", arguments->to, "last time (included)");
  exporting->add_option("-o,--output", arguments->output, "file to write (default: stdout)");
  exporting->callback([&context, arguments] {
    DataTable table(arguments->table, ParseColumns(arguments->columns));
    context.session.Connect();
    ResultTable result = RecordTable(table, ReadRecords(context, *arguments, table),
                                     {Format::Csv, context.epoch});
    // import's form: time, ms and the values.
    result.headers.erase(result.headers.begin() + 3);
    result.headers.erase(result.headers.begin());
    for (auto& row : result.rows) {
      row.erase(row.begin() + 3);
      row.erase(row.begin());
    }
    if (arguments->output.empty()) {
      WriteCsv(result, std::cout);
      return;
    }
    std::ofstream out(arguments->output);
    WriteCsv(result, out);
    if (!out.flush()) throw CommandError("export: cannot write " + arguments->output);
    std::cerr << fmt::format("exported {} records to {}\n", result.rows.size(), arguments->output);
  });
}

}  // namespace scadastore::cli
