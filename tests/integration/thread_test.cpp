// Eight threads of mixed and failing calls on one database. Run under the
// sanitizers by scripts/test: they, not only the counts, are the check.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

class ThreadTest : public DatabaseTest {};

// Each thread writes a table of its own (ids are max(id) + 1, so writers of
// one table collide by design) and fails, writing the shared last error.
TEST_P(ThreadTest, EightThreadsOfMixedAndFailingCalls) {
  std::vector<DataTable> tables;
  for (int t = 0; t < 8; ++t) {
    tables.emplace_back(DropAtEnd(UniqueTableName("threads")),
                        Columns{{"value", SCADASTORE_VALUE_FLOAT}});
    ASSERT_EQ(sgEnsureTableExist(Token(), tables.back().info(), nullptr, 0), 0u)
        << dbGetLastError();
  }
  uint32_t stored = 0;
  for (const char* options : {"", ";pool"}) {
    ASSERT_EQ(dbInitialize((GetParam().Config() + options).c_str()), 0u);
    const uint32_t rounds = *options ? 40 : 6;
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (size_t t = 0; t < tables.size(); ++t)
      threads.emplace_back([&, t] {
        DataTable& table = tables[t];
        RecordBuffer record(table.recordSize(), 1);
        for (uint32_t round = 0; round < rounds; ++round) {
          record.Put<uint32_t>(0, 4, round);
          record.Put<double>(0, 16, round / 100.0);
          if (sgSetRecord(Token(), table.info(), record.record(0), table.recordSize()) != 0 ||
              sgGetRecordCount(Token(), table.info()) != stored + round + 1 ||
              dbIsTableExist(Token(), table.info()->name) != 1)
            ++failures;
          almGetAlarmCount(Token(), "threads_missing");
        }
      });
    for (std::thread& thread : threads) thread.join();
    EXPECT_EQ(failures.load(), 0) << options;
    stored += rounds;
  }
}

INSTANTIATE_TEST_SUITE_P(Databases, ThreadTest, ::testing::ValuesIn(Databases({3})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
