#include <gtest/gtest.h>

#include <cstring>

#include "core/format.h"

namespace scadastore {
namespace {

TEST(FormatBounded, FitsCutsAndRefuses) {
  char buffer[16];
  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(FormatBounded(buffer, 8, "%s", "1234567"), 7);
  EXPECT_STREQ(buffer, "1234567");
  EXPECT_EQ(FormatBounded(buffer, 8, "%s", "12345678"), -1);
  EXPECT_STREQ(buffer, "1234567");

  EXPECT_EQ(FormatBounded(buffer, 1, "%s", ""), 0);
  EXPECT_EQ(buffer[0], '\0');
  buffer[0] = 'x';
  EXPECT_EQ(FormatBounded(buffer, 1, "%s", "a"), -1);
  EXPECT_EQ(buffer[0], '\0');

  std::memset(buffer, 'x', sizeof buffer);
  EXPECT_EQ(FormatBounded(buffer, 0, "%s", "a"), -1);
  EXPECT_EQ(FormatBounded(nullptr, 8, "%s", "a"), -1);
  EXPECT_EQ(FormatBounded(buffer, 8, nullptr), -1);
  EXPECT_EQ(FormatBounded(buffer, 0x80000000u, "%s", "a"), -1);
  EXPECT_EQ(buffer[0], 'x');
}

}  // namespace
}  // namespace scadastore
