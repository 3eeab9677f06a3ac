// sql: a statement on the tool's own connection, every column shown with
// its type; only a select runs without --write.
#include <algorithm>
#include <cctype>
#include <memory>

#include <fmt/format.h>

#include "tools/cli/command.h"

namespace scadastore::cli {
namespace {

struct SqlOptions {
  std::string statement, timeColumns;
  bool write = false;
};

// The library's time columns; --time-columns adds others.
const char* const kTimeColumns[] = {"time", "arisetime", "recovertime", "logtime"};

std::string FirstWord(const std::string& statement) {
  auto start = std::find_if(statement.begin(), statement.end(),
                            [](char c) { return !std::isspace(static_cast<unsigned char>(c)) && c != '('; });
  std::string word;
  for (auto c = start; c != statement.end() && std::isalpha(static_cast<unsigned char>(*c)); ++c)
    word += static_cast<char>(std::tolower(static_cast<unsigned char>(*c)));
  return word;
}

bool IsFloat(SQLSMALLINT type) { return type == SQL_FLOAT || type == SQL_REAL || type == SQL_DOUBLE; }

Cell TypedCell(const std::optional<std::string>& text, SQLSMALLINT type, bool time,
               const OutputOptions& output) {
  if (!text) return Cell();
  char* end = nullptr;
  switch (type) {
    case SQL_INTEGER:
    case SQL_SMALLINT:
    case SQL_TINYINT:
    case SQL_BIGINT:
    case SQL_BIT: {
      long long value = std::strtoll(text->c_str(), &end, 10);
      if (*end != '\0' || text->empty()) return *text;
      if (time && value >= 0 && value <= UINT32_MAX)
        return TimeCell(static_cast<uint32_t>(value), output);
      return value;
    }
    case SQL_DOUBLE:
    case SQL_FLOAT:
    case SQL_REAL:
    case SQL_NUMERIC:
    case SQL_DECIMAL: {
      double value = std::strtod(text->c_str(), &end);
      return *end == '\0' && !text->empty() ? Cell(value) : Cell(*text);
    }
    default:
      return *text;
  }
}

void RunSql(Context& context, const SqlOptions& options) {
  std::string word = FirstWord(options.statement);
  if (!options.write && word != "select" && word != "with" && word != "values")
    throw UsageError(fmt::format(
        "sql: '{}' changes the database; only a select runs without --write", word));
  std::vector<std::string> timeColumns(std::begin(kTimeColumns), std::end(kTimeColumns));
  for (size_t start = 0; start < options.timeColumns.size();) {
    size_t end = std::min(options.timeColumns.find(';', start), options.timeColumns.size());
    timeColumns.push_back(options.timeColumns.substr(start, end - start));
    start = end + 1;
  }
  OdbcConnection& database = context.session.Database();
  try {
    // Without --write the statement runs in a transaction that is rolled
    // back, so that nothing a select calls can keep a change.
    database.BeginTransaction();
    OdbcStatement statement = database.Statement();
    statement.Execute(options.statement);
    std::vector<ResultColumn> columns = statement.Describe();
    if (columns.empty()) {
      database.EndTransaction(options.write);
      std::cout << (options.write ? "done\n" : "done; nothing kept without --write\n");
      return;
    }
    std::vector<std::string> headers;
    std::vector<bool> isTime;
    for (const ResultColumn& column : columns) {
      headers.push_back(column.name);
      isTime.push_back(std::find(timeColumns.begin(), timeColumns.end(), column.name) !=
                       timeColumns.end());
    }
    OutputOptions output = context.Output();
    RowWriter writer(headers, output.format, std::cout);
    while (statement.Fetch()) {
      std::vector<Cell> row;
      for (size_t c = 0; c < columns.size(); ++c)
        row.push_back(TypedCell(statement.Text(static_cast<int>(c + 1), IsFloat(columns[c].type)),
                                columns[c].type, isTime[c], output));
      writer.Write(std::move(row));
    }
    writer.Finish();
    database.EndTransaction(options.write);
  } catch (const OdbcError& error) {
    throw CommandError(fmt::format("sql: {}", error.what()));
  }
}

}  // namespace

void AddSqlCommand(CLI::App& app, Context& context) {
  Command sql = AddCommand<SqlOptions>(
      app, context,
      {"sql",
       "Run a select and print every column it gives, typed (numbers stay numbers in JSON). "
       "Integer columns named time, arisetime, recovertime, logtime or in --time-columns show "
       "as local date-times (or epoch seconds under --epoch). Other statements need --write",
       "scadastore --sqlite plant.db sql 'select station, count(*) as alarms from plant_alarms "
       "group by station'"},
      RunSql);
  sql.app->add_option("statement", sql.options.statement, "the statement")->required();
  sql.app->add_option("--time-columns", sql.options.timeColumns,
                      "further integer columns holding times, separated by ';'");
  sql.app->add_flag("--write", sql.options.write,
                    "allow a statement that changes the database (insert, update, delete, DDL)");
}

}  // namespace scadastore::cli
