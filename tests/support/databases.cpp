#include "databases.h"

#include <unistd.h>

#include <atomic>
#include <cstdlib>

#include "core/sql_text.h"
#include "core/time_index.h"

namespace scadastore::testing {

std::string Database::Config() const {
  const char* value = std::getenv(envVar.c_str());
  if (value == nullptr || *value == '\0') return {};
  return std::string(value) + ";" + std::to_string(kind);
}

std::vector<Database> Databases(std::vector<int> sqliteKinds) {
  std::vector<Database> all;
  for (int kind : sqliteKinds)
    all.push_back({"Sqlite" + std::to_string(kind), "SCADASTORE_TEST_SQLITE", kind});
  all.push_back({"Postgres5", "SCADASTORE_TEST_POSTGRES", 5});
  all.push_back({"Mariadb2", "SCADASTORE_TEST_MARIADB", 2});
  return all;
}

std::string DatabaseName(const ::testing::TestParamInfo<Database>& info) {
  return info.param.name;
}

std::string UniqueTableName(const std::string& prefix) {
  static std::atomic<int> counter{0};
  return prefix + "_" + std::to_string(getpid()) + "_" + std::to_string(++counter);
}

std::string DropTimeIndexSql(int kind, const std::string& table) {
  const std::string index = TimeIndexName(table);
  return kind == 2 ? FormatStatement(DialectOf(kind), 1024, "drop index `%s` on `%s`",
                                     index.c_str(), table.c_str()).text
                   : FormatStatement(DialectOf(kind), 1024, "drop index `%s`", index.c_str()).text;
}

::testing::AssertionResult Refused(uint32_t result, uint32_t failure, const std::string& start) {
  const std::string last = dbGetLastError();
  if (result == failure && last.rfind(start, 0) == 0) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure() << "result " << result << ", error text \"" << last << '"';
}

TextTable::~TextTable() {
  if (text != kUntouched && text != nullptr) FreeResultBlock(offsets);
  if (text != kUntouched) FreeResultBlock(text);
}

uint32_t TextTable::Query(const std::string& sql, const char* timeColumns, const char* table) {
  return sgGetRecordBySQL(Token(), table, sql.c_str(), timeColumns, &rowCount, &fieldCount,
                          &offsets, &text, &textLength);
}

Cells TextTable::Row(uint32_t row) const {
  Cells cells;
  for (uint32_t f = 0; f < fieldCount; ++f) cells.push_back(text + offsets[row * fieldCount + f]);
  return cells;
}

std::vector<Cells> SelectTexts(const std::string& sql) {
  TextTable out;
  std::vector<Cells> rows;
  if (out.Query(sql) != 0) {
    ADD_FAILURE() << dbGetLastError();
    return rows;
  }
  for (uint32_t r = 1; out.text != nullptr && r <= out.rowCount; ++r) rows.push_back(out.Row(r));
  return rows;
}

void DatabaseTest::SetUp() {
  std::string config = GetParam().Config();
  if (config.empty()) {
    const char* ci = std::getenv("CI");
    if (ci != nullptr && std::string(ci) == "true")
      FAIL() << GetParam().envVar << " is not set: its server did not start";
    GTEST_SKIP() << GetParam().envVar << " is not set";
  }
  ASSERT_EQ(dbInitialize(config.c_str()), 0u) << "cannot connect with " << config;
}

void DatabaseTest::TearDown() {
  for (const std::string& table : tables_) dbRemoveTable(Token(), table.c_str(), nullptr, 0);
}

std::string DatabaseTest::Sql(const char* backtickTemplate, const std::string& table) const {
  return FormatStatement(DialectOf(kind()), 1024, backtickTemplate, table.c_str(), table.c_str())
      .text;
}

std::string DatabaseTest::DropAtEnd(const std::string& table) {
  tables_.push_back(table);
  return table;
}

}  // namespace scadastore::testing
