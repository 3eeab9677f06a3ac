// Several writers of one table, as threads and as processes (on Galera through
// two nodes). POSIX only: the writer processes are forked.
#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

constexpr uint32_t kCalls = 60;
constexpr uint32_t kLogSize = 914;  // a packed log record

class ClusterTest : public DatabaseTest {
 protected:
  // The second writer's data source: another node where the cluster has one.
  std::string SecondConfig() {
    const char* second = std::getenv((GetParam().envVar + "_SECOND").c_str());
    return second ? second + (";" + std::to_string(kind())) : GetParam().Config();
  }
};

// Writer `w` stores kCalls samples and kCalls pairs of log entries, each
// pair in one call; returns the calls that failed.
int Write(int w, const DataTableInfo* data, const std::string& logs) {
  RecordBuffer sample(data->recordSize, 1);
  RecordBuffer pair(kLogSize, 2);
  int failed = 0;
  for (uint32_t i = 0; i < kCalls; ++i) {
    const uint32_t time = uint32_t(w) * kCalls + i + 1;
    sample.Put<uint32_t>(0, 4, time);
    pair.Put<uint32_t>(0, 4, 2 * time);
    pair.Put<uint32_t>(1, 4, 2 * time + 1);
    failed += sgSetRecord(Token(), data, sample.record(0), data->recordSize) != 0;
    failed += logSetLog(Token(), logs.c_str(), reinterpret_cast<const LogRecord*>(pair.data()),
                           pair.bytes()) != 0;
  }
  return failed;
}

TEST_P(ClusterTest, TwoWritersOfOneTableLoseNothing) {
  for (bool processes : {false, true}) {
    SCOPED_TRACE(processes ? "processes" : "threads");
    DataTable data(DropAtEnd(UniqueTableName("writers")), Columns{{"v", SCADASTORE_VALUE_FLOAT}});
    const std::string logs = DropAtEnd(UniqueTableName("writer_log"));
    ASSERT_EQ(sgEnsureTableExist(Token(), data.info(), nullptr, 0), 0u) << LastError();
    ASSERT_EQ(logEnsureTableExist(Token(), logs.c_str()), 0u) << LastError();
    int failed = 0;
    if (processes) {
      const pid_t child = fork();
      ASSERT_GE(child, 0);
      if (child == 0) _exit(dbInitialize(SecondConfig().c_str()) ? 99 : Write(1, data.info(), logs));
      failed = Write(0, data.info(), logs);
      int status = 0;
      ASSERT_EQ(waitpid(child, &status, 0), child);
      ASSERT_TRUE(WIFEXITED(status));
      failed += WEXITSTATUS(status);
    } else {
      std::thread second([&] { failed += Write(1, data.info(), logs); });
      failed += Write(0, data.info(), logs);
      second.join();
    }
    EXPECT_EQ(failed, 0) << LastError();

    void* block = nullptr;
    uint32_t size = 0;
    ASSERT_EQ(sgGetRecord(Token(), data.info(), &block, &size, nullptr), 0u) << LastError();
    std::set<uint32_t> ids, times;
    for (uint32_t at = 0; at + data.recordSize() <= size; at += data.recordSize()) {
      ids.insert(*reinterpret_cast<uint32_t*>(static_cast<char*>(block) + at));
      times.insert(*reinterpret_cast<uint32_t*>(static_cast<char*>(block) + at + 4));
    }
    FreeResultBlock(block);
    EXPECT_EQ(size / data.recordSize(), 2 * kCalls);
    EXPECT_EQ(ids.size(), 2 * kCalls);
    EXPECT_EQ(times.size(), 2 * kCalls);
    RecordBuffer entries(kLogSize, 4 * kCalls + 1);
    ASSERT_EQ(logGetAllLog(Token(), logs.c_str(), reinterpret_cast<LogRecord*>(entries.data()),
                           entries.bytes()), 0u) << LastError();
    std::multiset<uint32_t> logtimes;
    for (uint32_t k = 0; k <= 4 * kCalls; ++k)
      if (entries.Get<uint32_t>(k, 4)) logtimes.insert(entries.Get<uint32_t>(k, 4));
    EXPECT_EQ(logtimes.size(), 4 * kCalls);
    EXPECT_EQ(std::set<uint32_t>(logtimes.begin(), logtimes.end()).size(), 4 * kCalls);
  }
}

INSTANTIATE_TEST_SUITE_P(Databases, ClusterTest, ::testing::ValuesIn(Databases({1})),
                         DatabaseName);

}  // namespace
}  // namespace scadastore::testing
