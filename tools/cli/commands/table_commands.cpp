// tables, describe, ensure, drop, exists: table management common to every
// family, read from the database's own description of its tables.
#include <chrono>
#include <cmath>
#include <optional>
#include <variant>

#include <fmt/format.h>

#include "core/time_index.h"
#include "tools/cli/command.h"
#include "tools/cli/commands/upgrade_command.h"
#include "tools/cli/database/data_table.h"

namespace scadastore::cli {
namespace {

struct TableOptions {
  std::string kind, table, columns;
};

// The time column of each kind of table.
std::string TimeColumn(const TableSchema& schema) {
  std::string kind = schema.Kind();
  if (kind == "data") return "time";
  if (kind == "alarm") return "arisetime";
  if (kind == "log") return "logtime";
  return "";
}

struct TableSize {
  Cell rows, first, last;  // first and last time; null for an empty table
};

TableSize ReadSize(Context& context, const TableSchema& schema) {
  Session& session = context.session;
  std::string time = TimeColumn(schema);
  std::string range = time.empty() ? "" : fmt::format(",min({0}),max({0})", session.Quote(time));
  try {
    OdbcStatement statement = session.Database().Statement();
    statement.Execute(fmt::format("select count(*){} from {}", range, session.Quote(schema.name)));
    statement.Fetch();
    TableSize size{std::stoll(statement.Text(1).value_or("0")), Cell(), Cell()};
    if (time.empty()) return size;
    if (auto first = statement.Text(2))
      size.first = TimeCell(static_cast<uint32_t>(std::stoul(*first)), context.Output());
    if (auto last = statement.Text(3))
      size.last = TimeCell(static_cast<uint32_t>(std::stoul(*last)), context.Output());
    return size;
  } catch (const OdbcError& error) {
    throw CommandError(fmt::format("reading {}: {}", schema.name, error.what()));
  }
}

const char* ValueTypeName(uint32_t type) {
  switch (type) {
    case SCADASTORE_VALUE_FLOAT: return "float";
    case SCADASTORE_VALUE_INTEGER: return "int";
    case SCADASTORE_VALUE_TEXT: return "text";
    default: return "";
  }
}

struct IndexOptions {
  std::vector<std::string> tables;
};

void RunTables(Context& context, const std::monostate&) {
  ResultTable result{{"table", "kind", "rows", "first", "last"}, {}};
  for (const std::string& name : ListTables(context.session)) {
    TableSchema schema = ReadSchema(context.session, name);
    TableSize size = ReadSize(context, schema);
    result.rows.push_back({name, schema.Kind(), size.rows, size.first, size.last});
  }
  context.Print(result);
}

void RunDescribe(Context& context, const TableOptions& options) {
  TableSchema schema = ReadSchema(context.session, options.table);
  TableSize size = ReadSize(context, schema);
  std::vector<std::string> indexes = ReadIndexes(context.session, schema.name);
  const std::string upgrade = schema.Kind() == "other" ? "" : UpgradeStatement(context.session, schema);
  ResultTable columns{{"column", "type", "value"}, {}};
  bool data = schema.Kind() == "data";
  for (size_t c = 0; c < schema.columns.size(); ++c) {
    const SchemaColumn& column = schema.columns[c];
    columns.rows.push_back(
        {column.name, column.typeName, data && c >= 4 ? ValueTypeName(column.valueType) : ""});
  }
  if (context.Output().format == Format::Json) {
    nlohmann::ordered_json object = {{"table", schema.name}, {"kind", schema.Kind()},
                                     {"rows", size.rows},    {"first", size.first},
                                     {"last", size.last},    {"indexes", indexes},
                                     {"upgrade", upgrade}};
    object["columns"] = nlohmann::ordered_json::array();
    for (const auto& row : columns.rows)
      object["columns"].push_back({{"name", row[0]}, {"type", row[1]}, {"value", row[2]}});
    std::cout << object.dump(2) << '\n';
    return;
  }
  std::cout << fmt::format("table    {} ({} table)\nrows     {}\n", schema.name, schema.Kind(),
                           size.rows.dump());
  if (!size.first.is_null())
    std::cout << fmt::format("time     {} to {}\n", CellText(size.first), CellText(size.last));
  std::cout << fmt::format("indexes  {}\n", indexes.empty() ? "none" : JoinNames(indexes));
  if (!upgrade.empty()) std::cout << "upgrade  needed (tables upgrade): " << upgrade << '\n';
  std::cout << '\n';
  context.Print(columns);
}

// The name of the index whose first column is `column`, among ReadIndexes'
// "name (a, b)" texts.
std::optional<std::string> IndexLeadingWith(const std::vector<std::string>& indexes,
                                            const std::string& column) {
  for (const std::string& index : indexes) {
    size_t open = index.rfind(" (");
    if (open == std::string::npos) continue;
    std::string columns = index.substr(open + 2, index.size() - open - 3);
    if (columns.substr(0, columns.find(", ")) == column) return index.substr(0, open);
  }
  return std::nullopt;
}

// Gives each table the index on its time column that the library creates
// with new tables, unless one leads with that column already. One line per
// table, written before the (possibly long) creation starts; a table that
// fails does not stop the others.
void RunIndex(Context& context, const IndexOptions& options) {
  Session& session = context.session;
  std::vector<std::string> tables = options.tables;
  if (tables.empty()) {
    for (const std::string& name : ListTables(session))
      if (!TimeColumn(ReadSchema(session, name)).empty()) tables.push_back(name);
    if (tables.empty()) std::cout << "no alarm, log or data tables\n";
  }
  size_t failed = 0;
  for (size_t t = 0; t < tables.size(); ++t) {
    const std::string& table = tables[t];
    std::cout << fmt::format("[{}/{}] {}: ", t + 1, tables.size(), table) << std::flush;
    try {
      std::string time = TimeColumn(ReadSchema(session, table));
      if (time.empty()) throw CommandError("not an alarm, log or data table");
      if (auto existing = IndexLeadingWith(ReadIndexes(session, table), time)) {
        std::cout << fmt::format("has {} on {}\n", *existing, time);
        continue;
      }
      std::string index = TimeIndexName(table);
      std::cout << fmt::format("creating {} on {} ... ", index, time) << std::flush;
      auto started = std::chrono::steady_clock::now();
      session.Database().Statement().Execute(fmt::format(
          "create index {} on {} ({})", session.Quote(index), session.Quote(table),
          session.Quote(time)));
      std::chrono::duration<double> took = std::chrono::steady_clock::now() - started;
      std::cout << fmt::format("done in {:.1f} s\n", took.count());
    } catch (const std::runtime_error& error) {  // CommandError or OdbcError
      std::cout << fmt::format("failed: {}\n", error.what());
      ++failed;
    }
  }
  if (failed > 0)
    throw CommandError(fmt::format("tables index: {} of {} tables failed", failed, tables.size()));
}

// What `ensure` finds: nothing (then it creates), or a table that must be
// of the asked kind and, for a data table, have the asked columns.
bool AlreadyThere(Context& context, const TableOptions& options) {
  if (!TableExists(context.session, options.table)) return false;
  TableSchema schema = ReadSchema(context.session, options.table);
  if (schema.Kind() != options.kind)
    throw CommandError(fmt::format("ensure: {} exists and is a {} table, not a {} table",
                                   options.table, schema.Kind(), options.kind));
  if (options.kind != "data") return true;
  std::string present, asked;
  for (const SchemaColumn& column : schema.ValueColumns())
    present += fmt::format("{}{}:{}", present.empty() ? "" : ",", column.name,
                           ValueTypeName(column.valueType));
  for (const Column& column : ParseColumns(options.columns))
    asked += fmt::format("{}{}:{}", asked.empty() ? "" : ",", column.name,
                         ValueTypeName(column.type));
  if (present != asked)
    throw CommandError(fmt::format("ensure: {} exists with other columns: {} (asked: {})",
                                   options.table, present, asked));
  return true;
}

void RunEnsure(Context& context, const TableOptions& options) {
  auto kind = EnsureKinds().find(options.kind);
  if (kind == EnsureKinds().end()) {
    std::vector<std::string> known;
    for (const auto& [name, function] : EnsureKinds()) known.push_back(name);
    throw UsageError(
        fmt::format("ensure: unknown kind '{}' (known: {})", options.kind, JoinNames(known)));
  }
  if (options.kind == "data" && options.columns.empty())
    throw UsageError("ensure data: give --columns");
  if (AlreadyThere(context, options)) {
    std::cout << fmt::format("{} table {} already exists\n", options.kind, options.table);
    return;
  }
  kind->second(context, options.table, options.columns);
  if (!TableExists(context.session, options.table))
    context.session.Fail(fmt::format("ensure: {} was not created", options.table));
  std::cout << fmt::format("created {} table {}\n", options.kind, options.table);
}

void RunDrop(Context& context, const TableOptions& options) {
  ReadSchema(context.session, options.table);  // "no table ..." with the tables there are
  char error[1024] = "";
  if (dbRemoveTable(context.session.Token(), options.table.c_str(), error, sizeof error) != 0)
    context.session.Fail(fmt::format("drop {}{}{}", options.table, *error ? ": " : "", error));
  std::cout << fmt::format("dropped {}\n", options.table);
}

void RunExists(Context& context, const TableOptions& options) {
  bool found = TableExists(context.session, options.table);
  std::cout << (found ? "yes\n" : "no\n");
  context.exitCode = found ? 0 : 1;
}

}  // namespace

void AddTableCommands(CLI::App& app, Context& context) {
  Command tables = AddCommand<std::monostate>(
      app, context,
      {"tables", "List the tables with their kind, rows and time range",
       "scadastore --sqlite plant.db tables"},
      RunTables);
  Command index = AddCommand<IndexOptions>(
      *tables.app, context,
      {"index",
       "Add the index on the time column (arisetime, logtime or time) that new tables get to "
       "existing alarm, log and data tables that lack one, so that time ranges and statistics "
       "stop reading the whole table. Prints a line per table; on a large table the creation "
       "takes a while and holds writers back on some databases",
       "scadastore --config 'plant;scada;secret;5' tables index plant_alarms plant"},
      RunIndex);
  index.app->add_option("table", index.options.tables,
                        "tables to index (default: every alarm, log and data table)");
  AddTablesUpgrade(*tables.app, context);
  AddCommand<TableOptions>(
      app, context,
      {"describe",
       "Show a table as the database describes it: its kind, rows, time range, indexes and "
       "columns with their types (the names that --columns takes)",
       "scadastore --sqlite plant.db describe samples", "table"},
      RunDescribe);

  Command ensure = AddCommand<TableOptions>(
      app, context,
      {"ensure",
       "Create an alarm, log or data table unless it exists; an existing table of another kind "
       "or with other columns is an error",
       "scadastore --sqlite plant.db ensure data samples --columns temp:float,pump:int,mode:text"},
      RunEnsure);
  ensure.app->add_option("kind", ensure.options.kind, "alarm, log or data")->required();
  ensure.app->add_option("table", ensure.options.table, "table name")->required();
  ensure.app->add_option("--columns", ensure.options.columns,
                         "value columns of a data table: name:float|int|text,... (a bare name "
                         "is float; int values are stored as 0 or 1)");
  ensure.app->preparse_callback(
      [&context](size_t) { context.session.options.createSqlite = true; });

  AddCommand<TableOptions>(app, context,
                           {"drop", "Drop a table", "scadastore --sqlite plant.db drop samples",
                            "table"},
                           RunDrop);
  AddCommand<TableOptions>(app, context,
                           {"exists", "Print yes and exit 0 when a table exists, else no and exit 1",
                            "scadastore --sqlite plant.db exists samples", "table"},
                           RunExists);
}

}  // namespace scadastore::cli
