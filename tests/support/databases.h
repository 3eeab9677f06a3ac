// The databases every integration test runs against, and per-test helpers.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/result_heap.h"
#include "scadastore.h"

namespace scadastore::testing {

struct Database {
  std::string name;     // "Sqlite1", "Postgres5", "Mariadb2": the ctest filter keys on it
  std::string envVar;   // holds "DSN;user;password" when the server runs
  int kind;
  int variant = 0;      // a suite's own second axis, such as the record family
  std::string Config() const;  // "DSN;user;password;kind", empty when unavailable
  bool sqlite() const { return envVar == "SCADASTORE_TEST_SQLITE"; }
};

// SQLite under the given kinds, PostgreSQL under 5, MariaDB under 2.
std::vector<Database> Databases(std::vector<int> sqliteKinds = {1, 4, 6});

// gtest prints a parameter by its name instead of its bytes.
inline void PrintTo(const Database& database, std::ostream* out) { *out << database.name; }

std::string DatabaseName(const ::testing::TestParamInfo<Database>& info);

// A table name unique to this process and call: prefix_<pid>_<counter>.
std::string UniqueTableName(const std::string& prefix);

// The statement that drops `table`'s time index, in the kind's dialect: it
// succeeds only while the index exists.
std::string DropTimeIndexSql(int kind, const std::string& table);

inline CallerToken Token() { return reinterpret_cast<CallerToken>(0x1); }
inline std::string LastError() { return dbGetLastError(); }

// A failed call: `failure` as its result and an error text starting with `start`.
::testing::AssertionResult Refused(uint32_t result, uint32_t failure, const std::string& start);

using Cells = std::vector<std::string>;

// The outputs of one sgGetRecordBySQL call, preset to values it must overwrite.
struct TextTable {
  static inline char* const kUntouched = reinterpret_cast<char*>(0x10);
  uint32_t rowCount = 99, fieldCount = 99, textLength = 99;
  uint32_t* offsets = reinterpret_cast<uint32_t*>(kUntouched);
  char* text = kUntouched;

  ~TextTable();
  // `sql` run with "-" as its table unless given.
  uint32_t Query(const std::string& sql, const char* timeColumns = nullptr,
                 const char* table = "-");
  Cells Row(uint32_t row) const;
};

// The rows of a select read through sgGetRecordBySQL, its header row left out.
std::vector<Cells> SelectTexts(const std::string& sql);

// Connects the library to the test's database; skips the test when the
// database is not configured (fails instead under CI=true). Drops the tables
// registered with DropAtEnd() afterwards.
class DatabaseTest : public ::testing::TestWithParam<Database> {
 protected:
  void SetUp() override;
  void TearDown() override;
  std::string DropAtEnd(const std::string& table);
  int kind() const { return GetParam().kind; }
  // A statement of the test's own in the database's dialect; every %s is `table`.
  std::string Sql(const char* backtickTemplate, const std::string& table) const;

 private:
  std::vector<std::string> tables_;
};

}  // namespace scadastore::testing
