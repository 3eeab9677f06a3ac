// Texts read in the backtick dialect arrive in the ANSI code page: GBK when
// Wine runs under a zh_CN LANG (code page 936).
#include <gtest/gtest.h>

#define WIN32_LEAN_AND_MEAN
#include <windows.h>

#include <string>

#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

class GbkTest : public DatabaseTest {};

TEST_P(GbkTest, Utf8TextIsReadAsGbk) {
  ASSERT_EQ(GetACP(), 936u) << "run under LANG=zh_CN.GBK";
  DataTable table(DropAtEnd(UniqueTableName("gbk")), {{"s", SCADASTORE_VALUE_TEXT}});
  ASSERT_EQ(sgEnsureTableExist(Token(), table.info(), nullptr, 0), 0u);
  // U+4E2D U+6587 (in GBK) and U+0E01 (not in GBK), given as UTF-8 bytes in a
  // statement that is plain ASCII itself.
  std::string insert = "insert into `" + std::string(table.info()->name) +
                       "` (`id`, `time`, `ms`, `modify`, `s`) values "
                       "(1, 1, 0, 0, convert(X'E4B8ADE69687E0B881' using utf8mb4))";
  ASSERT_EQ(sgOperateRecord(Token(), table.info(), insert.c_str()), 0u) << dbGetLastError();

  void* records = nullptr;
  uint32_t size = 0;
  ASSERT_EQ(sgGetRecord(Token(), table.info(), &records, &size, nullptr), 0u) << dbGetLastError();
  ASSERT_EQ(size, table.recordSize());
  EXPECT_STREQ(static_cast<char*>(records) + 16, "\xD6\xD0\xCE\xC4?");
  FreeResultBlock(records);
}

// Kind 2 (backtick quoting) is MariaDB's: the last of Databases().
INSTANTIATE_TEST_SUITE_P(Mariadb, GbkTest,
                         ::testing::ValuesIn(std::vector<Database>{Databases().back()}),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
