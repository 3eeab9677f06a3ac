// What a host writes is what it reads, on every database: every bit of a
// double, and ids up to 4294967295.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "support/data_tables.h"
#include "support/databases.h"

namespace scadastore::testing {
namespace {

constexpr uint32_t kAfter2038 = 2147483748u;  // 2038-01-19 03:15:48 UTC
constexpr uint32_t kLast = 4294967295u;

const std::vector<double> kDoubles = {16777217.0,          123456789.123,     0.1,
                                      0.30000000000000004, 1525.0164794921875,
                                      -std::numeric_limits<double>::denorm_min(),
                                      std::numeric_limits<double>::max()};

class ExactTest : public DatabaseTest {
 protected:
  // Every double of `block` equals kDoubles, bit for bit.
  static void ExpectDoubles(const void* block, uint32_t size, const char* how) {
    ASSERT_EQ(size, 24 * kDoubles.size()) << how;
    for (size_t k = 0; k < kDoubles.size(); ++k) {
      double read;
      std::memcpy(&read, static_cast<const unsigned char*>(block) + 24 * k + 16, 8);
      EXPECT_EQ(std::memcmp(&read, &kDoubles[k], 8), 0) << how << ": " << kDoubles[k] << " read "
                                                        << read;
    }
  }
};

TEST_P(ExactTest, DoublesComeBackBitForBit) {
  DataTable table(DropAtEnd(UniqueTableName("exact")), {{"v", 3}});
  ASSERT_EQ(sgEnsureTableExist(Token(), table.info(), nullptr, 0), 0u);
  RecordBuffer records(24, kDoubles.size());
  for (size_t k = 0; k < kDoubles.size(); ++k) {
    records.Put<uint32_t>(k, 4, kAfter2038 + static_cast<uint32_t>(k));
    records.Put<double>(k, 16, kDoubles[k]);
    ASSERT_EQ(sgSetRecord(Token(), table.info(), records.record(k), 24), 0u) << dbGetLastError();
  }
  ASSERT_EQ(sgBatchSetRecord(Token(), table.info(), records.data(), records.bytes()), 0u)
      << dbGetLastError();
  void* block = nullptr;
  uint32_t size = 0;
  ASSERT_EQ(sgGetAllRecordOfInterval(Token(), table.info(), kAfter2038, kLast, &block, &size), 0u)
      << dbGetLastError();
  ExpectDoubles(block, size / 2, "set");
  ExpectDoubles(static_cast<unsigned char*>(block) + size / 2, size / 2, "batch");
  std::free(block);
  const std::string where =
      Sql("select * from `%s` where `id` <= 7 order by `id`", table.info()->name);
  ASSERT_EQ(sgGetRecord(Token(), table.info(), &block, &size, where.c_str()), 0u) << dbGetLastError();
  ExpectDoubles(block, size, "caller's select");
  std::free(block);
  RecordBuffer one(24, 1);
  ASSERT_EQ(sgGetRecordByIndex(Token(), table.info(), 7, one.record(0), 24), 0u);
  EXPECT_EQ(one.Get<double>(0, 16), kDoubles.back());

  // A value the statement cannot carry and an id past 4294967295 are refused before any statement.
  records.Put<double>(0, 16, std::numeric_limits<double>::infinity());
  EXPECT_TRUE(Refused(sgSetRecord(Token(), table.info(), records.record(0), 24), 1, "[rcd101] invalid parameter"));
  EXPECT_TRUE(Refused(sgBatchSetRecord(Token(), table.info(), records.data(), records.bytes()), 1, "[rcd1701] invalid parameter"));
  const std::string last =
      Sql("update `%s` set `id` = 4294967295 where `id` = 14", table.info()->name);
  ASSERT_EQ(sgOperateRecord(Token(), table.info(), last.c_str()), 0u) << dbGetLastError();
  records.Put<double>(0, 16, 1.0);
  EXPECT_TRUE(Refused(sgSetRecord(Token(), table.info(), records.record(0), 24), 1, "[rcd101] invalid parameter"));
  EXPECT_EQ(sgGetIdByIndex(Token(), table.info(), 14), kLast);

  // Statistics computed by the database come back exactly too.
  const std::string early =
      Sql("insert into `%s` (`id`, `time`, `v`) values (1000, 100, 0.30000000000000004)",
          table.info()->name);
  ASSERT_EQ(sgOperateRecord(Token(), table.info(), early.c_str()), 0u) << dbGetLastError();
  ASSERT_EQ(sgGetRecordStatValueOfInterval(Token(), table.info(), SCADASTORE_STAT_MAX, 50, 150, one.record(0), 24), 0u)
      << dbGetLastError();
  EXPECT_EQ(one.Get<double>(0, 16), 0.30000000000000004);
}

INSTANTIATE_TEST_SUITE_P(Databases, ExactTest, ::testing::ValuesIn(Databases({3})), DatabaseName);

}  // namespace
}  // namespace scadastore::testing
