// sql: any select, as the library's text table.
#include <memory>

#include "tools/cli/commands.h"

namespace scadastore::cli {

void AddSqlCommand(CLI::App& app, Context& context) {
  struct Arguments {
    std::string sql, timeColumns;
  };
  auto arguments = std::make_shared<Arguments>();
  CLI::App* sql = AddCommand(
      app, "sql",
      "Run a select and print its result as text. The columns id, ms and modify are left "
      "out; time and the --time-columns show as local date-times",
      "scadastore --sqlite plant.db sql 'select station, count(*) as alarms from plant_alarms "
      "group by station'");
  sql->add_option("statement", arguments->sql, "the select statement")->required();
  sql->add_option("--time-columns", arguments->timeColumns,
                  "further integer columns holding times, separated by ';'");
  sql->callback([&context, arguments] {
    context.session.Connect();
    uint32_t rows = 0, fields = 0, textLength = 0;
    uint32_t* offsets = nullptr;
    char* text = nullptr;
    Check(sgGetRecordBySQL(context.session.token(), arguments->sql.c_str(),
                           arguments->sql.c_str(), arguments->timeColumns.c_str(), &rows, &fields,
                           &offsets, &text, &textLength),
          "sql");
    std::unique_ptr<uint32_t, decltype(&std::free)> ownOffsets(offsets, &std::free);
    std::unique_ptr<char, decltype(&std::free)> ownText(text, &std::free);
    ResultTable table;
    if (text != nullptr) {
      for (uint32_t f = 0; f < fields; ++f) table.headers.push_back(text + offsets[f]);
      for (uint32_t r = 1; r <= rows; ++r) {
        table.rows.emplace_back();
        for (uint32_t f = 0; f < fields; ++f)
          table.rows.back().push_back(std::string(text + offsets[r * fields + f]));
      }
    }
    context.Print(table);
  });
}

}  // namespace scadastore::cli
